#include <algorithm>

#include <immintrin.h>

#include "SampleKernels.h"
#include "SampleLoops.h"

// Only functions with one of these attributes may hold such instructions: the rest of the program
// runs on every processor.
#define QSND_SSSE3 __attribute__((target("ssse3")))
#define QSND_AVX2 __attribute__((target("avx2")))

namespace {

using namespace sampleloops;

// 24-bit samples are gathered into the upper three bytes of words by one shuffle. `Order` names the
// bytes of a sample from the lowest to the highest; sample `s` of a shuffle starts at byte
// `offset + 3 * s`.
struct LittleBytes {
  static constexpr bool big = false;
  using Format = Int24Little;
};
struct BigBytes {
  static constexpr bool big = true;
  using Format = Int24Big;
};

struct Mask {
  alignas(16) char bytes[16];
};

// Words from the samples that stand at these indexes, counted from byte `offset`.
template <class Order>
constexpr Mask gather(int offset, int first, int second, int third, int fourth) {
  Mask mask{};
  const int samples[] = {first, second, third, fourth};
  for (int word = 0; word < 4; ++word) {
    const int start = offset + 3 * samples[word];
    mask.bytes[4 * word] = static_cast<char>(0x80);  // a zero
    for (int i = 0; i < 3; ++i)
      mask.bytes[4 * word + 1 + i] = static_cast<char>(Order::big ? start + 2 - i : start + i);
  }
  return mask;
}

// Four samples in their order.
template <class Order>
constexpr Mask kInOrder = gather<Order>(0, 0, 1, 2, 3);
// Two frames: both left samples, then both right ones. The second pair of frames stands in the last
// 12 bytes of a load.
template <class Order>
constexpr Mask kFirstFrames = gather<Order>(0, 0, 2, 1, 3);
template <class Order>
constexpr Mask kLastFrames = gather<Order>(4, 0, 2, 1, 3);

QSND_SSSE3 inline __m128i load128(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

QSND_SSSE3 inline __m128i load128(const Mask& mask) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(mask.bytes));
}

QSND_SSSE3 inline void storeScaled(float* samples, __m128i words) {
  _mm_storeu_ps(samples, _mm_mul_ps(_mm_cvtepi32_ps(words), _mm_set1_ps(kScale32)));
}

template <class Order>
QSND_SSSE3 void convert24SSSE3(const char* raw, float* samples, std::size_t count) {
  const __m128i inOrder = load128(kInOrder<Order>);
  std::size_t done = 0;
  // A load takes 16 bytes for the 12 of its samples.
  for (; done + 6 <= count; done += 4)
    storeScaled(samples + done, _mm_shuffle_epi8(load128(raw + done * 3), inOrder));
  convert<typename Order::Format>(raw + done * 3, samples + done, count - done);
}

template <class Order>
QSND_SSSE3 void stereo24SSSE3(const char* raw, float* left, float* right, std::size_t frames) {
  const __m128i firstFrames = load128(kFirstFrames<Order>);
  const __m128i lastFrames = load128(kLastFrames<Order>);
  std::size_t done = 0;
  for (; done + 4 <= frames; done += 4) {
    const char* const run = raw + done * 6;
    const __m128i first = _mm_shuffle_epi8(load128(run), firstFrames);
    const __m128i last = _mm_shuffle_epi8(load128(run + 8), lastFrames);
    storeScaled(left + done, _mm_unpacklo_epi64(first, last));
    storeScaled(right + done, _mm_unpackhi_epi64(first, last));
  }
  stereo<typename Order::Format>(raw + done * 6, left + done, right + done, frames - done);
}

QSND_AVX2 inline __m256i load256(const char* low, const char* high) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(bytes),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

QSND_AVX2 inline __m256i twice(const Mask& mask) {
  return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(mask.bytes)));
}

QSND_AVX2 inline void storeScaled(float* samples, __m256i words) {
  _mm256_storeu_ps(samples, _mm256_mul_ps(_mm256_cvtepi32_ps(words), _mm256_set1_ps(kScale32)));
}

template <class Order>
QSND_AVX2 void convert24AVX2(const char* raw, float* samples, std::size_t count) {
  const __m256i inOrder = twice(kInOrder<Order>);
  std::size_t done = 0;
  for (; done + 10 <= count; done += 8) {
    const char* const run = raw + done * 3;
    storeScaled(samples + done, _mm256_shuffle_epi8(load256(run, run + 12), inOrder));
  }
  convert<typename Order::Format>(raw + done * 3, samples + done, count - done);
}

template <class Order>
QSND_AVX2 void stereo24AVX2(const char* raw, float* left, float* right, std::size_t frames) {
  const __m256i firstFrames = twice(kFirstFrames<Order>);
  const __m256i lastFrames = twice(kLastFrames<Order>);
  std::size_t done = 0;
  for (; done + 8 <= frames; done += 8) {
    const char* const run = raw + done * 6;
    const __m256i first = _mm256_shuffle_epi8(load256(run, run + 24), firstFrames);
    const __m256i last = _mm256_shuffle_epi8(load256(run + 8, run + 32), lastFrames);
    storeScaled(left + done, _mm256_unpacklo_epi64(first, last));
    storeScaled(right + done, _mm256_unpackhi_epi64(first, last));
  }
  stereo<typename Order::Format>(raw + done * 6, left + done, right + done, frames - done);
}

// Four samples of a format that stand side by side, as floats, or four of one place and four of
// another. `spareBytes` behind them are read too.
template <class Order>
struct Row24 {
  static constexpr std::size_t bytes = 3;
  static constexpr std::size_t spareBytes = 4;
  QSND_SSSE3 static inline __m128 load(const char* raw) {
    const __m128i words = _mm_shuffle_epi8(load128(raw), load128(kInOrder<Order>));
    return _mm_mul_ps(_mm_cvtepi32_ps(words), _mm_set1_ps(kScale32));
  }
  QSND_AVX2 static inline __m256 load(const char* low, const char* high) {
    const __m256i words = _mm256_shuffle_epi8(load256(low, high), twice(kInOrder<Order>));
    return _mm256_mul_ps(_mm256_cvtepi32_ps(words), _mm256_set1_ps(kScale32));
  }
};

struct Row16 {
  static constexpr std::size_t bytes = 2;
  static constexpr std::size_t spareBytes = 0;
  QSND_SSSE3 static inline __m128 load(const char* raw) {
    const __m128i values = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(raw));
    const __m128i words = _mm_srai_epi32(_mm_unpacklo_epi16(values, values), 16);
    return _mm_mul_ps(_mm_cvtepi32_ps(words), _mm_set1_ps(kScale16));
  }
  QSND_AVX2 static inline __m256 load(const char* low, const char* high) {
    const __m128 half = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(low)));
    const __m128i values =
        _mm_castps_si128(_mm_loadh_pi(half, reinterpret_cast<const __m64*>(high)));
    return _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(values)),
                         _mm256_set1_ps(kScale16));
  }
};

struct RowUnsigned8 {
  static constexpr std::size_t bytes = 1;
  static constexpr std::size_t spareBytes = 0;
  QSND_SSSE3 static inline __m128 load(const char* raw) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i values = _mm_cvtsi32_si128(sampleloops::load<std::int32_t>(raw));
    const __m128i words = _mm_unpacklo_epi16(_mm_unpacklo_epi8(values, zero), zero);
    return _mm_mul_ps(_mm_sub_ps(_mm_cvtepi32_ps(words), _mm_set1_ps(128.0f)),
                      _mm_set1_ps(kScale8));
  }
  QSND_AVX2 static inline __m256 load(const char* low, const char* high) {
    const __m128i values =
        _mm_unpacklo_epi32(_mm_cvtsi32_si128(sampleloops::load<std::int32_t>(low)),
                           _mm_cvtsi32_si128(sampleloops::load<std::int32_t>(high)));
    const __m256 numbers = _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(values));
    return _mm256_mul_ps(_mm256_sub_ps(numbers, _mm256_set1_ps(128.0f)), _mm256_set1_ps(kScale8));
  }
};

struct RowFloat {
  static constexpr std::size_t bytes = 4;
  static constexpr std::size_t spareBytes = 0;
  QSND_SSSE3 static inline __m128 load(const char* raw) {
    return _mm_loadu_ps(reinterpret_cast<const float*>(raw));
  }
};

// Four channels of four frames, the first `outputs` of them to `buffers`.
template <class Row>
QSND_SSSE3 inline void square(const char* raw, std::size_t frameBytes, std::size_t outputs,
                              float* const* buffers, std::size_t index) {
  __m128 rows[4];
  for (std::size_t frame = 0; frame < 4; ++frame)
    rows[frame] = Row::load(raw + frame * frameBytes);
  _MM_TRANSPOSE4_PS(rows[0], rows[1], rows[2], rows[3]);
  for (std::size_t channel = 0; channel < outputs; ++channel)
    _mm_storeu_ps(buffers[channel] + index, rows[channel]);
}

// The same of eight frames: two squares side by side.
template <class Row>
QSND_AVX2 inline void squarePair(const char* raw, std::size_t frameBytes, std::size_t outputs,
                                 float* const* buffers, std::size_t index) {
  __m256 rows[4];
  for (std::size_t frame = 0; frame < 4; ++frame)
    rows[frame] = Row::load(raw + frame * frameBytes, raw + (frame + 4) * frameBytes);
  const __m256 lowA = _mm256_unpacklo_ps(rows[0], rows[1]);
  const __m256 lowB = _mm256_unpacklo_ps(rows[2], rows[3]);
  const __m256 highA = _mm256_unpackhi_ps(rows[0], rows[1]);
  const __m256 highB = _mm256_unpackhi_ps(rows[2], rows[3]);
  const __m256 columns[4] = {_mm256_shuffle_ps(lowA, lowB, _MM_SHUFFLE(1, 0, 1, 0)),
                             _mm256_shuffle_ps(lowA, lowB, _MM_SHUFFLE(3, 2, 3, 2)),
                             _mm256_shuffle_ps(highA, highB, _MM_SHUFFLE(1, 0, 1, 0)),
                             _mm256_shuffle_ps(highA, highB, _MM_SHUFFLE(3, 2, 3, 2))};
  for (std::size_t channel = 0; channel < outputs; ++channel)
    _mm256_storeu_ps(buffers[channel] + index, columns[channel]);
}

// How many frames are read behind the last one. A square of three channels takes the first of the
// next frame for its fourth, and leaves it.
template <class Row>
constexpr std::size_t spareFrames(std::size_t channels) {
  return Row::spareBytes == 0 && channels >= 4 ? 0 : 1;
}

// Frames in squares of four channels by four frames. The last square of a frame begins early enough
// to end with it, and writes some samples a second time. Channels come in their order, so that
// where two buffers are the same memory, the later one stays.
template <class Row>
QSND_SSSE3 std::size_t squares(const char* raw, std::size_t channels, std::size_t outputs,
                               float* const* buffers, std::size_t offset, std::size_t frames) {
  const std::size_t frameBytes = channels * Row::bytes;
  const std::size_t spare = spareFrames<Row>(channels);
  const std::size_t lastSquare = channels < 4 ? 0 : channels - 4;
  std::size_t done = 0;
  for (; done + 4 + spare <= frames; done += 4) {
    for (std::size_t channel = 0; channel < outputs; channel += 4) {
      const std::size_t first = std::min(channel, lastSquare);
      const std::size_t count = std::min<std::size_t>(4, outputs - first);
      const char* const corner = raw + done * frameBytes + first * Row::bytes;
      if (count == 4) {
        square<Row>(corner, frameBytes, 4, buffers + first, offset + done);
      } else {
        square<Row>(corner, frameBytes, count, buffers + first, offset + done);
      }
    }
  }
  return done;
}

template <class Row>
QSND_AVX2 std::size_t squarePairs(const char* raw, std::size_t channels, std::size_t outputs,
                                  float* const* buffers, std::size_t offset, std::size_t frames) {
  const std::size_t frameBytes = channels * Row::bytes;
  const std::size_t spare = spareFrames<Row>(channels);
  const std::size_t lastSquare = channels < 4 ? 0 : channels - 4;
  std::size_t done = 0;
  for (; done + 8 + spare <= frames; done += 8) {
    for (std::size_t channel = 0; channel < outputs; channel += 4) {
      const std::size_t first = std::min(channel, lastSquare);
      const std::size_t count = std::min<std::size_t>(4, outputs - first);
      const char* const corner = raw + done * frameBytes + first * Row::bytes;
      if (count == 4) {
        squarePair<Row>(corner, frameBytes, 4, buffers + first, offset + done);
      } else {
        squarePair<Row>(corner, frameBytes, count, buffers + first, offset + done);
      }
    }
  }
  return done + squares<Row>(raw + done * frameBytes, channels, outputs, buffers, offset + done,
                             frames - done);
}

QSND_SSSE3 void takeApartSSSE3(const float* source, std::size_t channels, std::size_t outputs,
                               float* const* buffers, std::size_t offset, std::size_t frames) {
  std::size_t done = 0;
  if (channels >= 3) {
    done = squares<RowFloat>(reinterpret_cast<const char*>(source), channels, outputs, buffers,
                             offset, frames);
  }
  kPortableKernels.takeApart(source + done * channels, channels, outputs, buffers, offset + done,
                             frames - done);
}

using SquareKernels = std::array<SquareKernel, SampleKernels::kNumbers + 1>;

constexpr SquareKernels kSquaresSSSE3 = {nullptr,
                                         nullptr,
                                         squares<RowUnsigned8>,
                                         squares<Row16>,
                                         squares<Row24<LittleBytes>>,
                                         nullptr,
                                         squares<RowFloat>,
                                         nullptr,
                                         nullptr,
                                         squares<Row24<BigBytes>>,
                                         nullptr,
                                         nullptr};

constexpr SquareKernels kSquaresAVX2 = {nullptr,
                                        nullptr,
                                        squarePairs<RowUnsigned8>,
                                        squarePairs<Row16>,
                                        squarePairs<Row24<LittleBytes>>,
                                        nullptr,
                                        squares<RowFloat>,
                                        nullptr,
                                        nullptr,
                                        squarePairs<Row24<BigBytes>>,
                                        nullptr,
                                        nullptr};

// The common loops once more, with wider instructions for the compiler.
template <class Format>
QSND_SSSE3 void convertSSSE3(const char* raw, float* samples, std::size_t count) {
  convert<Format>(raw, samples, count);
}
template <class Format>
QSND_SSSE3 void stereoSSSE3(const char* raw, float* left, float* right, std::size_t frames) {
  stereo<Format>(raw, left, right, frames);
}
template <class Format>
QSND_AVX2 void convertAVX2(const char* raw, float* samples, std::size_t count) {
  convert<Format>(raw, samples, count);
}
template <class Format>
QSND_AVX2 void stereoAVX2(const char* raw, float* left, float* right, std::size_t frames) {
  stereo<Format>(raw, left, right, frames);
}

constexpr SampleKernels kSSSE3Kernels = {
    {nullptr, convertSSSE3<Int8>, convertSSSE3<UInt8>, convertSSSE3<Int16Little>,
     convert24SSSE3<LittleBytes>, convertSSSE3<Int32Little>, convertSSSE3<Float32Little>,
     convertSSSE3<Float64Little>, convertSSSE3<Int16Big>, convert24SSSE3<BigBytes>,
     convertSSSE3<Int32Big>, nullptr},
    {nullptr, stereoSSSE3<Int8>, stereoSSSE3<UInt8>, stereoSSSE3<Int16Little>,
     stereo24SSSE3<LittleBytes>, stereoSSSE3<Int32Little>, stereoSSSE3<Float32Little>,
     stereoSSSE3<Float64Little>, stereoSSSE3<Int16Big>, stereo24SSSE3<BigBytes>,
     stereoSSSE3<Int32Big>, nullptr},
    takeApartSSSE3,
    kSquaresSSSE3};

// Floats are only moved: there the wider stores, which cross lines of the cache in buffers that are
// aligned to 16 bytes, would lose.
constexpr SampleKernels kAVX2Kernels = {
    {nullptr, convertAVX2<Int8>, convertAVX2<UInt8>, convertAVX2<Int16Little>,
     convert24AVX2<LittleBytes>, convertAVX2<Int32Little>, convertAVX2<Float32Little>,
     convertAVX2<Float64Little>, convertAVX2<Int16Big>, convert24AVX2<BigBytes>,
     convertAVX2<Int32Big>, nullptr},
    {nullptr, stereoAVX2<Int8>, stereoAVX2<UInt8>, stereoAVX2<Int16Little>,
     stereo24AVX2<LittleBytes>, stereoAVX2<Int32Little>, stereoSSSE3<Float32Little>,
     stereoAVX2<Float64Little>, stereoAVX2<Int16Big>, stereo24AVX2<BigBytes>, stereoAVX2<Int32Big>,
     nullptr},
    takeApartSSSE3,
    kSquaresAVX2};

}  // namespace

const SampleKernels* architectureKernels(InstructionSet instructions) noexcept {
  __builtin_cpu_init();
  if (instructions == InstructionSet::SSSE3 && __builtin_cpu_supports("ssse3"))
    return &kSSSE3Kernels;
  if (instructions == InstructionSet::AVX2 && __builtin_cpu_supports("avx2")) return &kAVX2Kernels;
  return nullptr;
}
