#include "AudioSources.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include <sndfile.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "HostKit/Bundle.h"
#include "HostKit/Document.h"

namespace {

constexpr std::size_t kMostOutputs = hostkit::kMostChannelsDelivered;

class BundleSource : public AudioSource {
public:
  explicit BundleSource(const std::string& path) : fDocument(fBundle, path) {}
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    fDocument.read(position, frames, buffers);
  }

private:
  hostkit::Bundle fBundle{QSND_BUNDLE};
  hostkit::Document fDocument;
};

template <class Stride, class Sample, class Convert>
void takeApartBy(Stride channels, const Sample* interleaved, std::size_t frames,
                 float* const* buffers, std::size_t offset, Convert convert) {
  const std::size_t outputs = std::min<std::size_t>(channels, kMostOutputs);
  for (std::size_t channel = 0; channel < outputs; ++channel) {
    float* const out = buffers[channel] + offset;
    const Sample* const in = interleaved + channel;
    for (std::size_t frame = 0; frame < frames; ++frame)
      out[frame] = convert(in[frame * channels]);
  }
}

// As well as the compiler can: it knows the counts of channels that are measured.
template <class Sample, class Convert>
void takeApart(const Sample* interleaved, std::size_t channels, std::size_t frames,
               float* const* buffers, std::size_t offset, Convert convert) {
  const auto by = [&](auto stride) {
    takeApartBy(stride, interleaved, frames, buffers, offset, convert);
  };
  if (channels == 1) return by(std::integral_constant<std::size_t, 1>());
  if (channels == 2) return by(std::integral_constant<std::size_t, 2>());
  if (channels == 8) return by(std::integral_constant<std::size_t, 8>());
  by(channels);
}

class SndfileSource : public AudioSource {
public:
  explicit SndfileSource(const std::string& path) : fFile(sf_open(path.c_str(), SFM_READ, &fInfo)) {
    if (fFile == nullptr) throw std::runtime_error("libsndfile cannot open " + path);
  }
  ~SndfileSource() override { sf_close(fFile); }
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    const auto channels = static_cast<std::size_t>(fInfo.channels);
    fInterleaved.resize(std::max(fInterleaved.size(), channels * frames));
    if (position != fPosition) sf_seek(fFile, position, SEEK_SET);
    const auto count = static_cast<std::size_t>(sf_readf_float(fFile, fInterleaved.data(), frames));
    fPosition = position + static_cast<std::int64_t>(count);
    takeApart(fInterleaved.data(), channels, count, buffers, 0,
              [](float sample) { return sample; });
  }

private:
  SF_INFO fInfo{};
  SNDFILE* fFile;
  std::int64_t fPosition = 0;
  std::vector<float> fInterleaved;
};

class LibavSource : public AudioSource {
public:
  explicit LibavSource(const std::string& path) {
    if (avformat_open_input(&fFormat, path.c_str(), nullptr, nullptr) < 0 ||
        avformat_find_stream_info(fFormat, nullptr) < 0) {
      throw std::runtime_error("libavformat cannot open " + path);
    }
    const AVCodecParameters* const parameters = fFormat->streams[0]->codecpar;
    const AVCodec* const codec = avcodec_find_decoder(parameters->codec_id);
    fDecoder = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(fDecoder, parameters);
    if (avcodec_open2(fDecoder, codec, nullptr) < 0)
      throw std::runtime_error("libavcodec has no decoder for " + path);
  }
  ~LibavSource() override {
    av_frame_free(&fFrame);
    av_packet_free(&fPacket);
    avcodec_free_context(&fDecoder);
    avformat_close_input(&fFormat);
  }
  void read(std::int64_t position, std::uint32_t frames, float* const* buffers) override {
    if (position == 0) rewind();
    for (std::size_t done = 0; done < frames;) {
      if (fTaken == available() && !decode()) return;
      const std::size_t count = std::min(frames - done, available() - fTaken);
      deliver(count, buffers, done);
      fTaken += count;
      done += count;
    }
  }

private:
  std::size_t available() const { return static_cast<std::size_t>(fFrame->nb_samples); }

  void rewind() {
    av_seek_frame(fFormat, 0, 0, AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(fDecoder);
    av_frame_unref(fFrame);
    fTaken = 0;
  }

  bool decode() {
    fTaken = 0;
    while (avcodec_receive_frame(fDecoder, fFrame) < 0) {
      if (av_read_frame(fFormat, fPacket) < 0) return false;
      avcodec_send_packet(fDecoder, fPacket);
      av_packet_unref(fPacket);
    }
    return true;
  }

  template <class Sample, class Convert>
  void deliverAs(std::size_t count, float* const* buffers, std::size_t offset, Convert convert) {
    const auto channels = static_cast<std::size_t>(fDecoder->ch_layout.nb_channels);
    const auto* const samples = reinterpret_cast<const Sample*>(fFrame->data[0]);
    takeApart(samples + fTaken * channels, channels, count, buffers, offset, convert);
  }

  void deliver(std::size_t count, float* const* buffers, std::size_t offset) {
    switch (fFrame->format) {
      case AV_SAMPLE_FMT_U8:
        return deliverAs<std::uint8_t>(count, buffers, offset, [](std::uint8_t sample) {
          return (static_cast<float>(sample) - 128.0f) * 0x1p-7f;
        });
      case AV_SAMPLE_FMT_S16:
        return deliverAs<std::int16_t>(count, buffers, offset, [](std::int16_t sample) {
          return static_cast<float>(sample) * 0x1p-15f;
        });
      case AV_SAMPLE_FMT_S32:
        return deliverAs<std::int32_t>(count, buffers, offset, [](std::int32_t sample) {
          return static_cast<float>(sample) * 0x1p-31f;
        });
      case AV_SAMPLE_FMT_FLT:
        return deliverAs<float>(count, buffers, offset, [](float sample) { return sample; });
      default:
        throw std::runtime_error("libavcodec gives samples of another kind");
    }
  }

  AVFormatContext* fFormat = nullptr;
  AVCodecContext* fDecoder = nullptr;
  AVPacket* fPacket = av_packet_alloc();
  AVFrame* fFrame = av_frame_alloc();
  std::size_t fTaken = 0;  // of the frames of fFrame
};

}  // namespace

std::unique_ptr<AudioSource> openBundle(const std::string& path) {
  return std::make_unique<BundleSource>(path);
}

std::unique_ptr<AudioSource> openSndfile(const std::string& path) {
  return std::make_unique<SndfileSource>(path);
}

std::unique_ptr<AudioSource> openLibav(const std::string& path) {
  return std::make_unique<LibavSource>(path);
}
