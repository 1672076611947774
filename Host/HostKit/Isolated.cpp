#include "HostKit/Isolated.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "HostKit/Document.h"

namespace hostkit {
namespace {

constexpr const char* kName = "the importer";

// Both processes are the same program, so values travel as they lie in memory.
template <class T>
void put(std::string& message, const T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  message.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void putText(std::string& message, const std::string& text) {
  put(message, text.size());
  message += text;
}

// Takes a message apart, which may come from a process whose memory is spoilt.
class Taking {
public:
  explicit Taking(const std::string& message) : fMessage(message) {}

  const char* bytes(std::size_t size) {
    if (size > fMessage.size() - fTaken) throw Error("the importer has damaged its process");
    fTaken += size;
    return fMessage.data() + fTaken - size;
  }
  template <class T>
  T value() {
    T value;
    std::memcpy(&value, bytes(sizeof(value)), sizeof(value));
    return value;
  }
  std::string text() {
    const auto size = value<std::size_t>();
    return std::string(bytes(size), size);
  }
  bool atEnd() const { return fTaken == fMessage.size(); }

private:
  const std::string& fMessage;
  std::size_t fTaken = 0;
};

enum class Question : char { Load, Open, Read, Close };

struct Stretch {
  std::int64_t position;
  std::uint32_t frames;
};

std::size_t deliveredChannels(const AudioInfo& info) {
  return std::min<std::size_t>(info.channels, kMostChannelsDelivered);
}

// The far side of an IsolatedDocument.
class Server {
public:
  Server(std::filesystem::path folder, std::filesystem::path path)
      : fFolder(std::move(folder)), fPath(std::move(path)) {}

  std::string answer(const std::string& message) {
    Taking taking(message);
    switch (taking.value<Question>()) {
      case Question::Load:
        fBundle.emplace(fFolder);
        return {};
      case Question::Open:
        return open();
      case Question::Read:
        return read(taking.value<Stretch>());
      case Question::Close:
        fDocument.reset();
        fBundle.reset();
        return {};
    }
    return {};
  }

private:
  std::string open() {
    fDocument = std::make_unique<Document>(*fBundle, fPath);
    std::string message;
    put(message, fDocument->info());
    put(message, fDocument->reachableFrames());
    return message;
  }

  // One channel behind the other; those that are not delivered stay here.
  std::string read(const Stretch& stretch) {
    const std::size_t channels = fDocument->info().channels;
    const std::size_t delivered = deliveredChannels(fDocument->info());
    fSamples.resize((delivered + 1) * stretch.frames);
    fBuffers.assign(channels, fSamples.data() + delivered * stretch.frames);
    for (std::size_t channel = 0; channel < delivered; ++channel) {
      fBuffers[channel] = fSamples.data() + channel * stretch.frames;
    }
    fDocument->read(stretch.position, stretch.frames, fBuffers.data());
    return std::string(reinterpret_cast<const char*>(fSamples.data()),
                       delivered * stretch.frames * sizeof(float));
  }

  std::filesystem::path fFolder;
  std::filesystem::path fPath;
  std::optional<Bundle> fBundle;
  std::unique_ptr<Document> fDocument;
  std::vector<float> fSamples;
  std::vector<float*> fBuffers;
};

ChildProcess::Answer serverOf(const std::filesystem::path& folder,
                              const std::filesystem::path& path) {
  return [server = std::make_shared<Server>(folder, path)](const std::string& message) {
    return server->answer(message);
  };
}

std::string messageOf(Question question) {
  return std::string(1, static_cast<char>(question));
}

// Only words cross over; that the bundle is at fault, not the document, is known from the question.
void load(ChildProcess& process) {
  try {
    process.ask(messageOf(Question::Load));
  } catch (const Error& error) {
    throw BundleError(error.what(), error.result());
  }
}

std::string packFormats(const std::vector<Format>& formats) {
  std::string message;
  for (const Format& format : formats) {
    put(message, format.flags);
    putText(message, format.type);
    putText(message, format.name);
    putText(message, format.shortName);
    put(message, format.extensions.size());
    for (const std::string& extension : format.extensions)
      putText(message, extension);
  }
  return message;
}

std::vector<Format> unpackFormats(const std::string& message) {
  std::vector<Format> formats;
  for (Taking taking(message); !taking.atEnd();) {
    Format format;
    format.flags = taking.value<std::uint32_t>();
    format.type = taking.text();
    format.name = taking.text();
    format.shortName = taking.text();
    for (auto count = taking.value<std::size_t>(); count > 0; --count)
      format.extensions.push_back(taking.text());
    formats.push_back(std::move(format));
  }
  return formats;
}

}  // namespace

IsolatedDocument::IsolatedDocument(const std::filesystem::path& folder,
                                   const std::filesystem::path& path, std::chrono::seconds patience)
    : fProcess(kName, serverOf(folder, path), patience) {
  load(fProcess);
  const std::string message = fProcess.ask(messageOf(Question::Open));
  fIsOpen = true;
  Taking taking(message);
  fInfo = taking.value<AudioInfo>();
  fReachable = taking.value<std::int64_t>();
}

void IsolatedDocument::read(std::int64_t position, std::uint32_t frames, float* const* buffers) {
  std::string question = messageOf(Question::Read);
  put(question, Stretch{position, frames});
  const std::string message = fProcess.ask(question);
  Taking taking(message);
  const std::size_t delivered = deliveredChannels(fInfo);
  const std::size_t size = frames * sizeof(float);
  for (std::size_t channel = 0; channel < fInfo.channels; ++channel) {
    if (channel < delivered) {
      std::memcpy(buffers[channel], taking.bytes(size), size);
    } else {
      std::fill_n(buffers[channel], frames, 0.0f);
    }
  }
}

IsolatedDocument::~IsolatedDocument() {
  try {
    if (fIsOpen) close();
  } catch (const std::exception&) {
    // The process has failed already, which was told.
  }
}

void IsolatedDocument::close() {
  fIsOpen = false;
  fProcess.ask(messageOf(Question::Close));
}

std::vector<Format> isolatedFormats(const std::filesystem::path& folder,
                                    std::chrono::seconds patience) {
  std::optional<Bundle> bundle;
  ChildProcess process(
      kName,
      [&](const std::string& message) -> std::string {
        if (message != messageOf(Question::Load)) return packFormats(bundle->formats());
        bundle.emplace(folder);
        return {};
      },
      patience);
  load(process);
  return unpackFormats(process.ask({}));
}

}  // namespace hostkit
