#include "SoundDocument.h"

#include <cstddef>
#include <istream>
#include <utility>

#include "ImporterQSND.h"
#include "qvacore/Unicode.h"

namespace ImporterQSND {
namespace {

using Stream = boost::shared_ptr<pkg::IPkgStream<>>;

#pragma pack(push, 1)

// All numbers in the file are little-endian, as the processor's are.
struct RIFFHeader {
  std::uint32_t tag;
  std::uint32_t notUsed4;
  std::uint32_t form;
};

struct SubChunkHeader {
  std::uint32_t tag;
  std::uint32_t size;  // of the content, in bytes
};

struct FormatChunk {
  std::uint16_t notUsed0;
  std::uint16_t channels;
  std::uint32_t sampleRate;
  std::uint32_t notUsed8;
  std::uint16_t blockAlign;
  std::uint16_t bitsPerSample;
};

#pragma pack(pop)

static_assert(sizeof(RIFFHeader) == 12 && offsetof(RIFFHeader, form) == 8);
static_assert(sizeof(SubChunkHeader) == 8 && offsetof(SubChunkHeader, size) == 4);
static_assert(sizeof(FormatChunk) == 16 && offsetof(FormatChunk, channels) == 2 &&
              offsetof(FormatChunk, sampleRate) == 4 && offsetof(FormatChunk, blockAlign) == 12 &&
              offsetof(FormatChunk, bitsPerSample) == 14);

constexpr std::uint32_t kRIFFTag = 0x46464952;
constexpr std::uint32_t kWAVETag = 0x45564157;
constexpr std::uint32_t kFormatTag = 0x20746D66;
constexpr std::uint32_t kDataTag = 0x61746164;

// False when the stream ends inside the record.
template <class Record>
bool ReadRecord(std::istream& stream, Record& record) {
  stream.read(reinterpret_cast<char*>(&record), sizeof(record));
  return stream.gcount() == static_cast<std::streamsize>(sizeof(record));
}

// False when the stream ends before `size` bytes are passed.
bool Skip(std::istream& stream, std::streamsize size) {
  stream.ignore(size);
  return stream.gcount() == size;
}

// Goes forward to the content of the next chunk with this tag. No padding byte is skipped behind a
// chunk of odd size. False when the stream ends first.
bool FindChunk(Stream stream, unsigned int tag, SubChunkHeader& header) {
  for (;;) {
    const bool ok = ReadRecord(*stream, header);
    if (header.tag == tag) return ok;
    if (!ok) return false;
    if (!Skip(*stream, static_cast<std::streamsize>(header.size))) return false;
  }
}

// Sizes in bytes wrap at 32 bits, signed: what lies beyond cannot be reached.
std::int32_t BytesOf(std::uint32_t frames, const SoundDocumentState& document) {
  return static_cast<std::int32_t>(frames * document.channelCount * document.bytesPerSample);
}

// Reads the layout of the audio and leaves the stream on the first sample byte. False when this is
// no RIFF/WAVE that can be read; fields set by then stay set.
bool ReadLayout(const Stream& stream, SoundDocumentState& document) {
  RIFFHeader riff{};
  if (!ReadRecord(*stream, riff)) return false;
  if (riff.tag != kRIFFTag || riff.form != kWAVETag) return false;
  SubChunkHeader chunk{};
  if (!FindChunk(stream, kFormatTag, chunk) || chunk.size < sizeof(FormatChunk)) return false;
  FormatChunk format{};
  if (!ReadRecord(*stream, format)) return false;
  document.channelCount = format.channels;
  document.sampleRate = static_cast<float>(format.sampleRate);
  document.bytesPerSample = format.bitsPerSample >> 3;
  const auto rest = static_cast<std::int32_t>(chunk.size - sizeof(FormatChunk));
  if (rest > 0 && !Skip(*stream, rest)) return false;
  if (!FindChunk(stream, kDataTag, chunk)) return false;
  document.audioDataStart = stream->tellg();
  document.frameCount = chunk.size / format.blockAlign;
  return true;
}

}  // namespace

void ImporterQSND::OpenQSND() {
  SoundDocumentState& document = *documentState;
  // Whatever goes wrong, the host hears the same: the document did not open.
  try {
    document.isOpen = false;
    const std::string path(qvacore::utility::UTF16to8(document.filePath.c_str()).c_str());
    auto package = pkg::zip::ZipPackageFactory<>::getInstance()->openPackage(
        path, std::ios::in, nullptr, nullptr, nullptr);
    auto mixdownFile = package->getFile("Mixdown.wav", true);
    auto audioStream = mixdownFile->open(std::ios::in, false);
    if (!ReadLayout(audioStream, document)) return;
    // What an earlier open has left goes with the locals, from the stream to the package.
    std::swap(document.package, package);
    std::swap(document.mixdownFile, mixdownFile);
    std::swap(document.audioStream, audioStream);
    document.isOpen = true;
  } catch (...) {
  }
}

void ImporterQSND::QuietQSND() {
  SoundDocumentState& document = *documentState;
  // What cannot be closed stays; the destructor releases it.
  try {
    if (document.audioStream) document.audioStream->close();
    if (document.package) document.package->close();
    document.audioStream.reset();
    document.mixdownFile.reset();
    document.package.reset();
    document.isOpen = false;
  } catch (...) {
  }
}

void ImporterQSND::CloseQSND() {
  QuietQSND();
  documentState->filePath.clear();
}

bool ImporterQSND::SetStreamPosition(int frame) {
  SoundDocumentState& document = *documentState;
  try {
    std::iostream& stream = *document.audioStream;
    if (stream.eof()) stream.clear();
    stream.seekg(document.audioDataStart);
    if (frame != 0) {
      stream.seekg(BytesOf(static_cast<std::uint32_t>(frame), document), std::ios::cur);
    }
    return true;
  } catch (...) {
    return false;
  }
}

int ImporterQSND::StreamAudioFromQSND(unsigned int frames, char* buffer) {
  const SoundDocumentState& document = *documentState;
  try {
    std::iostream& stream = *document.audioStream;
    stream.read(buffer, BytesOf(frames, document));
    const auto bytes = static_cast<std::int32_t>(stream.gcount());
    return bytes / static_cast<std::int32_t>(document.channelCount) /
           static_cast<std::int32_t>(document.bytesPerSample);
  } catch (...) {
    return -1;
  }
}

int ImporterQSND::ReadAudioData(AudioHandler& /*handler*/, long long position, unsigned int frames,
                                char* buffer, int& framesRead) {
  framesRead = 0;
  if (!SetStreamPosition(static_cast<int>(position))) return -1;
  const int result = StreamAudioFromQSND(frames, buffer);
  if (result < 0) return -1;
  framesRead = result;
  return 0;
}

int ImporterQSND::AudioHandlerCallback(void* context, AudioHandler& handler, long long position,
                                       unsigned int frames, char* buffer, int& framesRead) {
  return static_cast<ImporterQSND*>(context)->ReadAudioData(handler, position, frames, buffer,
                                                            framesRead);
}

}  // namespace ImporterQSND
