#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AudioHandler.h"
#include "MemorySource.h"
#include "QFL/Hash.h"
#include "qvacore/Guid.h"

// The host's side of a buffer, with its life counted.
struct HostBuffer {
  std::vector<float> memory;
  int references = 1;
};

namespace {

// A host with buffers and a cache of them. Each operation can be made to fail.
struct CacheHost {
  std::set<HostBuffer*> alive;
  std::map<std::string, HostBuffer*> cache;
  std::vector<std::string> calls;
  std::vector<std::string> keys;
  std::vector<std::int64_t> createArguments;
  bool createFails = false, memoryFails = false, memoryIsNull = false;
  bool findLeavesHandleOnFailure = false, findGivesNull = false;

  ~CacheHost() {
    cache.clear();
    for (HostBuffer* buffer : alive)
      delete buffer;
  }
};

CacheHost* gHost;

void release(HostBufferRef buffer) {
  gHost->calls.push_back("release");
  ASSERT_TRUE(gHost->alive.count(buffer));
  ASSERT_GT(buffer->references, 0);
  --buffer->references;
}

std::int32_t getMemory(HostBufferRef buffer, std::int32_t access, void** memory) {
  gHost->calls.push_back("memory " + std::to_string(access));
  EXPECT_GT(buffer->references, 0);
  if (gHost->memoryFails) return 5;
  *memory = gHost->memoryIsNull ? nullptr : buffer->memory.data();
  return 0;
}

std::int32_t create(HostBufferRef* buffer, std::int32_t a, std::uint32_t b, std::int32_t c,
                    std::int32_t d, std::int32_t e, std::int32_t f, std::uint32_t size) {
  gHost->calls.push_back("create");
  gHost->createArguments = {a, b, c, d, e, f, size};
  *buffer = new HostBuffer{std::vector<float>(size / sizeof(float), 0.125f), 1};
  if (gHost->createFails) {
    delete *buffer;
    return 9;
  }
  gHost->alive.insert(*buffer);
  return 0;
}

std::int32_t storeByName(const char* key, HostBufferRef buffer) {
  gHost->calls.push_back("store");
  gHost->keys.emplace_back(key);
  ++buffer->references;
  gHost->cache[key] = buffer;
  return 0;
}

std::int32_t findByName(const char* key, HostBufferRef* buffer) {
  gHost->calls.push_back("find");
  gHost->keys.emplace_back(key);
  EXPECT_EQ(std::string(key).size(), AudioHandler::kKeyBytes - 1);
  if (gHost->findGivesNull) {
    *buffer = nullptr;
    return 0;
  }
  const auto found = gHost->cache.find(key);
  if (found == gHost->cache.end()) {
    if (gHost->findLeavesHandleOnFailure) {
      *buffer = new HostBuffer{std::vector<float>(4), 1};
      gHost->alive.insert(*buffer);
    }
    return 2;
  }
  ++found->second->references;
  *buffer = found->second;
  return 0;
}

const HostBufferSuite kBuffers{release, getMemory};
const HostBufferCreatorSuite kCreator{{nullptr, nullptr}, create};
const HostBufferCacheSuite kCache{{nullptr, nullptr, nullptr, nullptr}, storeByName, findByName};

class AudioHandlerCache : public testing::Test {
protected:
  AudioHandlerCache() {
    gHost = &host;
    source.frameBytes = 8;
    for (int i = 0; i < 8 * 10000; ++i) {
      source.bytes.push_back(static_cast<char>(i / 8 * 3 + i % 8));
    }
  }

  // A source of eight channels of unsigned bytes, 4096 frames a block.
  void prepare(AudioHandler& handler) {
    handler.cacheIdentity.fill('\0');
    std::string("first source").copy(handler.cacheIdentity.data(), 12);
    handler.bufferSuite = &kBuffers;
    handler.bufferCreatorSuite = &kCreator;
    handler.bufferCacheSuite = &kCache;
    handler.cacheEnabled = true;
    handler.ConfigureSource(8, 1, 10000, SampleKind::IntLittle, &MemorySource::read);
  }

  static float expected(int frame, int channel) {
    const auto byte = static_cast<unsigned char>(frame * 3 + channel);
    return (static_cast<float>(byte) - 128.0f) / 128.0f;
  }

  void expectServed(AudioHandler& handler, int position, int frames) {
    ChannelBuffers out(6, static_cast<std::size_t>(frames));
    ASSERT_EQ(handler.ServeAudio(position, static_cast<std::uint32_t>(frames), out.data(), &source),
              0);
    for (int channel = 0; channel < 6; ++channel) {
      for (int i = 0; i < frames; ++i) {
        ASSERT_EQ(out[static_cast<std::size_t>(channel)][static_cast<std::size_t>(i)],
                  expected(position + i, channel));
      }
    }
  }

  int references() const {
    int sum = 0;
    for (const HostBuffer* buffer : host.alive)
      sum += buffer->references;
    return sum;
  }

  CacheHost host;
  MemorySource source;
};

TEST_F(AudioHandlerCache, AMissMakesABufferAndStoresIt) {
  AudioHandler handler;
  prepare(handler);
  expectServed(handler, 0, 10);
  EXPECT_EQ(host.calls,
            (std::vector<std::string>{"find", "create", "memory 2", "store", "memory 0"}));
  EXPECT_EQ(host.createArguments,
            (std::vector<std::int64_t>{2, 0x64756140, 1, 1, 1, 1, 4096 * 8 * 4}));
  EXPECT_TRUE(handler.floatBlock.empty());
  EXPECT_EQ(host.keys[0], host.keys[1]);
  EXPECT_EQ(host.cache.size(), 1u);
}

TEST_F(AudioHandlerCache, AHitNeedsNoRead) {
  AudioHandler first;
  prepare(first);
  expectServed(first, 0, 10);
  AudioHandler second;
  prepare(second);
  expectServed(second, 0, 4096);
  EXPECT_EQ(source.positions.size(), 1u);
}

TEST_F(AudioHandlerCache, BlocksAreCachedByPosition) {
  AudioHandler handler;
  prepare(handler);
  expectServed(handler, 0, 10000);
  EXPECT_EQ(source.positions, (std::vector<long long>{0, 4096, 8192}));
  EXPECT_EQ(host.cache.size(), 3u);
  // The hit keeps the length of the last, shorter block; what lies behind it is a block of its own.
  expectServed(handler, 0, 1808);
  EXPECT_EQ(source.positions.size(), 3u);
  expectServed(handler, 0, 4096);
  EXPECT_EQ(source.positions.back(), 1808);
}

TEST_F(AudioHandlerCache, TheKeyIsAGuidOfPositionBlockSizeAndIdentity) {
  AudioHandler handler;
  prepare(handler);
  expectServed(handler, 0, 1);
  const std::string key = host.keys[0];
  ASSERT_EQ(key.size(), 36u);
  for (std::size_t i = 0; i < key.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    EXPECT_EQ(key[i] == '-', dash);
    EXPECT_TRUE(dash || std::isxdigit(static_cast<unsigned char>(key[i])));
  }
  expectServed(handler, 9000, 1);
  prepare(handler);
  handler.cacheIdentity[36] = 'x';
  expectServed(handler, 0, 1);
  prepare(handler);
  handler.ConfigureSource(7, 1, 10000, SampleKind::IntLittle, &MemorySource::read);
  source.frameBytes = 7;
  ChannelBuffers out(6, 1);
  EXPECT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 0);
  source.frameBytes = 8;
  EXPECT_EQ(std::set<std::string>(host.keys.begin(), host.keys.end()).size(), 4u);
  // The same in another process, and on another day.
  prepare(handler);
  expectServed(handler, 0, 1);
  EXPECT_EQ(host.keys.back(), key);
}

// The key by hand. The fourth word counts what is mixed in, and is itself mixed.
std::string keyOf(std::int64_t position, std::int32_t blockSamples, const std::string& identity) {
  QFL::HashValue hash;
  hash.words = {0, 0, 0, 42};
  QFL::MixHash::MixInData(hash, "AudioHandler Cached Normalized AudioBuffer", 42);
  hash.words[3] += 8;
  QFL::MixHash::MixInData(hash, &position, 8);
  hash.words[3] += 4;
  QFL::MixHash::MixInData(hash, &blockSamples, 4);
  char text[37] = {};
  identity.copy(text, sizeof text);
  hash.words[3] += 37;
  QFL::MixHash::MixInData(hash, text, 37);
  const auto byte = [&](std::size_t word, int number) {
    return static_cast<std::uint8_t>(hash.words[word] >> (24 - 8 * number) & 0xFF);
  };
  const qvacore::utility::Guid guid(hash.words[0],
                                    static_cast<std::uint16_t>(hash.words[1] / 0x10000),
                                    static_cast<std::uint16_t>(hash.words[1] % 0x10000),
                                    {byte(2, 0), byte(2, 1), byte(2, 2), byte(2, 3), byte(3, 0),
                                     byte(3, 1), byte(3, 2), byte(3, 3)});
  std::string key;
  for (const char16_t character : guid.AsString())
    key.push_back(static_cast<char>(character));
  return key;
}

TEST_F(AudioHandlerCache, TheKeyIsWhatTheHashOfItsPartsGives) {
  for (const std::int64_t position : {std::int64_t{0}, std::int64_t{1}, std::int64_t{0x123456789},
                                      std::int64_t{-1}, INT64_MIN / 16}) {
    AudioHandler handler;
    prepare(handler);
    handler.TransferToAudioBuffer(position, &source);
    EXPECT_EQ(host.keys.back(), keyOf(position, 4096 * 8, "first source")) << position;
  }
  AudioHandler handler;
  prepare(handler);
  handler.ConfigureSource(7, 3, 10000, SampleKind::IntLittle, &MemorySource::read);
  const std::string longest = "0123456789abcdefghijklmnopqrstuvwxyz!";
  ASSERT_EQ(longest.size(), handler.cacheIdentity.size());
  longest.copy(handler.cacheIdentity.data(), longest.size());
  source.frameBytes = 21;
  ASSERT_EQ(handler.TransferToAudioBuffer(5, &source), 0);
  EXPECT_EQ(host.keys.back(), keyOf(5, 32768 / 21 * 7, longest));
}

TEST_F(AudioHandlerCache, EachSwitchAndTableIsNeeded) {
  const auto serve = [&](auto change) {
    AudioHandler handler;
    prepare(handler);
    change(handler);
    expectServed(handler, 0, 10);
    EXPECT_TRUE(host.calls.empty());
  };
  serve([](AudioHandler& handler) { handler.cacheEnabled = false; });
  serve([](AudioHandler& handler) { handler.bufferSuite = nullptr; });
  serve([](AudioHandler& handler) { handler.bufferCreatorSuite = nullptr; });
  serve([](AudioHandler& handler) { handler.bufferCacheSuite = nullptr; });
  EXPECT_EQ(source.positions.size(), 4u);
}

TEST_F(AudioHandlerCache, IsNotUsedWhereEveryChannelIsDelivered) {
  AudioHandler handler;
  prepare(handler);
  handler.maxChannels = 8;
  handler.ConfigureSource(8, 1, 10000, SampleKind::IntLittle, &MemorySource::read);
  ChannelBuffers out(8, 10);
  ASSERT_EQ(handler.ServeAudio(0, 10, out.data(), &source), 0);
  EXPECT_EQ(out[7][9], expected(9, 7));
  EXPECT_TRUE(host.calls.empty());
}

TEST_F(AudioHandlerCache, ABufferThatCannotBeMadeIsReplacedByTheOwnBlock) {
  AudioHandler handler;
  prepare(handler);
  host.createFails = true;
  expectServed(handler, 0, 10);
  EXPECT_EQ(host.calls, (std::vector<std::string>{"find", "create"}));
  EXPECT_EQ(handler.cachedBuffer, nullptr);
  EXPECT_EQ(handler.floatBlock.size(), 4096u * 8);
}

TEST_F(AudioHandlerCache, ABufferWhoseMemoryIsRefusedIsReplacedByTheOwnBlock) {
  for (const bool refused : {true, false}) {
    AudioHandler handler;
    prepare(handler);
    handler.cacheIdentity[20] = refused ? 'a' : 'b';
    host.memoryFails = refused;
    host.memoryIsNull = !refused;
    expectServed(handler, 0, 10);
    EXPECT_EQ(handler.floatBlock.size(), 4096u * 8);
  }
}

TEST_F(AudioHandlerCache, AHitWhoseMemoryIsRefusedIsSilence) {
  AudioHandler first;
  prepare(first);
  expectServed(first, 0, 10);
  AudioHandler second;
  prepare(second);
  host.memoryFails = true;
  ChannelBuffers out(6, 10);
  EXPECT_EQ(second.ServeAudio(0, 10, out.data(), &source), 0);
  EXPECT_EQ(out[0], std::vector<float>(10, 0.0f));
}

TEST_F(AudioHandlerCache, AHitKeepsTheEarlierNumberOfFrames) {
  AudioHandler first;
  prepare(first);
  source.mostFrames = 100;
  expectServed(first, 0, 10);
  ASSERT_EQ(first.bufferFrames, 100);
  AudioHandler second;
  prepare(second);
  ASSERT_EQ(second.TransferToAudioBuffer(0, &source), 0);
  EXPECT_EQ(second.bufferFrames, 4096);
  EXPECT_EQ(source.positions.size(), 1u);
}

TEST_F(AudioHandlerCache, AFindThatSucceedsWithoutABufferIsAMiss) {
  AudioHandler handler;
  prepare(handler);
  host.findGivesNull = true;
  expectServed(handler, 0, 10);
  EXPECT_EQ(source.positions.size(), 1u);
}

TEST_F(AudioHandlerCache, ABufferThatAFailedFindLeavesIsReleased) {
  AudioHandler handler;
  prepare(handler);
  host.findLeavesHandleOnFailure = true;
  expectServed(handler, 0, 10);
  EXPECT_EQ(host.calls[1], "release");
}

TEST_F(AudioHandlerCache, AFailedReadStoresNothing) {
  AudioHandler handler;
  prepare(handler);
  source.failure = -1;
  ChannelBuffers out(6, 1);
  EXPECT_EQ(handler.ServeAudio(0, 1, out.data(), &source), -1);
  EXPECT_TRUE(host.cache.empty());
  source.failure = 0;
  source.mostFrames = 0;
  EXPECT_EQ(handler.ServeAudio(0, 1, out.data(), &source), 38);
  EXPECT_TRUE(host.cache.empty());
}

TEST_F(AudioHandlerCache, TheHandlerReleasesEveryBufferThatItHeld) {
  {
    AudioHandler handler;
    prepare(handler);
    for (int i = 0; i < 3; ++i)
      expectServed(handler, 0, 10000);
    EXPECT_EQ(references(), static_cast<int>(host.cache.size()) + 1);
  }
  EXPECT_EQ(references(), static_cast<int>(host.cache.size()));
}

TEST_F(AudioHandlerCache, SwitchingTheCacheOffReleasesTheBufferAtTheNextTransfer) {
  AudioHandler handler;
  prepare(handler);
  expectServed(handler, 0, 10);
  handler.cacheEnabled = false;
  expectServed(handler, 5000, 10);
  EXPECT_EQ(handler.cachedBuffer, nullptr);
  EXPECT_EQ(references(), 1);
}

TEST_F(AudioHandlerCache, ABufferIsKeptWhereNoTableCanReleaseIt) {
  {
    AudioHandler handler;
    prepare(handler);
    expectServed(handler, 0, 10);
    ASSERT_NE(handler.cachedBuffer, nullptr);
    handler.bufferSuite = nullptr;
    expectServed(handler, 5000, 10);
    EXPECT_NE(handler.cachedBuffer, nullptr);
  }
  EXPECT_EQ(references(), 2) << "the cache's and the handler's, whose end could not tell";
}

}  // namespace
