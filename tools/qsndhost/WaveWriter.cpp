#include "WaveWriter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include <sys/stat.h>
#include <unistd.h>

#include "common/Failure.h"

namespace {

// A WAV file counts its bytes in 32 bits; its header is far shorter than the rest.
constexpr std::int64_t kMostWaveBytes = 0xFFFFFFFF - 4096;

int bytesOf(WaveFormat format) {
  return format == WaveFormat::Float ? 4 : format == WaveFormat::Int24 ? 3 : 2;
}

int subtypeOf(WaveFormat format) {
  switch (format) {
    case WaveFormat::Int24:
      return SF_FORMAT_PCM_24;
    case WaveFormat::Int16:
      return SF_FORMAT_PCM_16;
    default:
      return SF_FORMAT_FLOAT;
  }
}

// A sample as an integer of `bits` bits, in the top of 32.
int integerOf(float sample, int bits) {
  const double scale = std::ldexp(1.0, bits - 1);
  if (std::isnan(sample)) return 0;
  const double value = std::clamp(std::nearbyint(sample * scale), -scale, scale - 1);
  return static_cast<int>(value * std::ldexp(1.0, 32 - bits));
}

}  // namespace

// What libsndfile asks of the output. It does not tell of every failure, so they are kept here.
class WaveWriter::Bytes {
public:
  static sf_count_t length(void* self) {
    struct stat status {};
    return of(self).kept(fstat(of(self).fDescriptor, &status) == 0 ? status.st_size : -1);
  }
  static sf_count_t seek(sf_count_t offset, int whence, void* self) {
    return of(self).kept(lseek(of(self).fDescriptor, offset, whence));
  }
  static sf_count_t tell(void* self) { return seek(0, SEEK_CUR, self); }
  static sf_count_t write(const void* bytes, sf_count_t count, void* self) {
    const auto* const begin = static_cast<const char*>(bytes);
    sf_count_t done = 0;
    while (done < count && of(self).fError == 0) {
      const ssize_t written =
          ::write(of(self).fDescriptor, begin + done, static_cast<std::size_t>(count - done));
      if (written < 0 && errno == EINTR) continue;
      if (of(self).kept(written) >= 0) done += written;
    }
    return done;
  }

  explicit Bytes(const tools::OutputFile& output)
      : fOutput(output), fDescriptor(output.descriptor()) {}
  // Raises tools::Failure for the first call that failed.
  void check() const {
    if (fError == 0) return;
    errno = fError;
    throw fOutput.failure(tools::systemReason());
  }

private:
  static Bytes& of(void* self) { return *static_cast<Bytes*>(self); }
  sf_count_t kept(sf_count_t result) {
    if (result < 0 && fError == 0) fError = errno;
    return result;
  }

  const tools::OutputFile& fOutput;
  int fDescriptor;
  int fError = 0;
};

WaveWriter::WaveWriter(const tools::OutputFile& output, WaveFormat format, int channels,
                       int sampleRate, std::int64_t frames)
    : fFormat(format), fOutput(output), fBytes(std::make_unique<Bytes>(output)) {
  const bool isLong = frames > kMostWaveBytes / (channels * bytesOf(format));
  SF_INFO info{};
  info.channels = channels;
  info.samplerate = sampleRate;
  info.format = (isLong ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | subtypeOf(format);
  SF_VIRTUAL_IO calls{Bytes::length, Bytes::seek, nullptr, Bytes::write, Bytes::tell};
  fFile.reset(sf_open_virtual(&calls, SFM_WRITE, &info, fBytes.get()));
  fBytes->check();
  if (fFile == nullptr) throw fOutput.failure(sf_strerror(nullptr));
  // No time stamp: the same audio gives the same bytes.
  sf_command(fFile.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

WaveWriter::~WaveWriter() = default;

void WaveWriter::write(const std::vector<const float*>& buffers, std::size_t frames) {
  fFloats.resize(frames * buffers.size());
  for (std::size_t channel = 0; channel < buffers.size(); ++channel) {
    for (std::size_t i = 0; i < frames; ++i) {
      fFloats[i * buffers.size() + channel] = buffers[channel][i];
    }
  }
  const sf_count_t written = writeInterleaved(frames);
  fBytes->check();
  if (written != static_cast<sf_count_t>(frames)) {
    throw fOutput.failure(sf_strerror(fFile.get()));
  }
}

sf_count_t WaveWriter::writeInterleaved(std::size_t frames) {
  const auto count = static_cast<sf_count_t>(frames);
  if (fFormat == WaveFormat::Float) return sf_writef_float(fFile.get(), fFloats.data(), count);
  const int bits = 8 * bytesOf(fFormat);
  fIntegers.resize(fFloats.size());
  std::transform(fFloats.begin(), fFloats.end(), fIntegers.begin(),
                 [bits](float sample) { return integerOf(sample, bits); });
  return sf_writef_int(fFile.get(), fIntegers.data(), count);
}

void WaveWriter::finish() {
  sf_write_sync(fFile.get());
  const int error = sf_close(fFile.release());
  fBytes->check();
  if (error != 0) throw fOutput.failure(sf_error_number(error));
  endFormat();
}

namespace {

// As pread() or pwrite() from the file's beginning, in as many calls as it takes.
template <class Call, class Byte>
ssize_t transferAll(Call call, int descriptor, Byte* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = call(descriptor, bytes + done, size - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

void WaveWriter::endFormat() {
  constexpr std::size_t kFormat = 12, kFact = 36, kPadding = 48, kEnd = 56;
  std::string header(kEnd, '\0');
  const int descriptor = fOutput.descriptor();
  const ssize_t size = transferAll(pread, descriptor, header.data(), header.size());
  if (size < 0) throw fOutput.failure(tools::systemReason());
  const bool isShort =
      size == ssize_t{kEnd} && header.compare(kFormat, 8, "fmt \x10\0\0\0", 8) == 0 &&
      header.compare(kFact, 4, "fact") == 0 && header.compare(kPadding, 4, "PAD ") == 0;
  if (!isShort || header[kPadding + 4] < 2) return;
  header[kFormat + 4] += 2;
  header[kPadding + 4] -= 2;
  header.insert(kFact, 2, '\0');
  if (transferAll(pwrite, descriptor, header.data(), header.size()) < 0) {
    throw fOutput.failure(tools::systemReason());
  }
}
