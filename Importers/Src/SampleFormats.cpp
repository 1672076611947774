#include "SampleFormats.h"

#include <algorithm>
#include <array>
#include <functional>

#include "SampleKernels.h"
#include "SampleLoops.h"

namespace {

// The conversion of a number by the kernels of this processor.
template <std::uint32_t Number>
void convert(char* raw, float* samples, std::size_t count) {
  sampleKernels().convert[Number](raw, samples, count);
}

void convertSwapping(char* raw, float* samples, std::size_t count) {
  swapFloats(raw, count);
  convert<SampleFormatFloat32Little>(raw, samples, count);
}

// Indexed by format number.
constexpr std::array<SampleFormat, SampleKernels::kNumbers + 1> kFormats{
    {{0, nullptr},
     {1, convert<SampleFormatInt8>},
     {1, convert<SampleFormatUInt8>},
     {2, convert<SampleFormatInt16Little>},
     {3, convert<SampleFormatInt24Little>},
     {4, convert<SampleFormatInt32Little>},
     {4, convert<SampleFormatFloat32Little>},
     {8, convert<SampleFormatFloat64Little>},
     {2, convert<SampleFormatInt16Big>},
     {3, convert<SampleFormatInt24Big>},
     {4, convert<SampleFormatInt32Big>},
     {4, convertSwapping}}};

struct ChoiceRow {
  SampleKind kind;
  std::uint32_t bytesPerSample;
  SampleFormatChoice choice;
};

// 8-byte floats are converted, but the host is told that no format fits.
constexpr ChoiceRow kChoices[] = {
    {SampleKind::IntLittle, 1, {SampleFormatUInt8, SampleFormatUInt8}},
    {SampleKind::IntLittle, 2, {SampleFormatInt16Little, SampleFormatInt16Little}},
    {SampleKind::IntLittle, 3, {SampleFormatInt24Little, SampleFormatInt24Little}},
    {SampleKind::IntLittle, 4, {SampleFormatInt32Little, SampleFormatInt32Little}},
    {SampleKind::FloatLittle, 4, {SampleFormatFloat32Little, SampleFormatFloat32Little}},
    {SampleKind::FloatLittle, 8, {SampleFormatFloat64Little, SampleFormatOther}},
    {SampleKind::IntBig, 1, {SampleFormatInt8, SampleFormatInt8}},
    {SampleKind::IntBig, 2, {SampleFormatInt16Big, SampleFormatInt16Big}},
    {SampleKind::IntBig, 3, {SampleFormatInt24Big, SampleFormatInt24Big}},
    {SampleKind::IntBig, 4, {SampleFormatInt32Big, SampleFormatInt32Big}},
    {SampleKind::FloatBig, 4, {SampleFormatFloat32Big, SampleFormatFloat32Big}},
};

// Frames up to the next address that the widest stores like. Stores across the lines of the cache
// cost up to a third of the time.
std::size_t framesToAlignment(const float* destination) {
  constexpr std::uintptr_t kAlignment = 32;
  const auto beyond = reinterpret_cast<std::uintptr_t>(destination) % kAlignment;
  return beyond == 0 ? 0 : (kAlignment - beyond) / sizeof(float);
}

bool overlap(const float* a, const float* b, std::size_t frames) {
  const std::less<> before;
  return before(a, b + frames) && before(b, a + frames);
}

void convertStereo(StereoKernel kernel, const char* raw, std::size_t frameBytes, float* left,
                   float* right, std::size_t frames) {
  const std::size_t head = std::min(framesToAlignment(left), frames);
  kernel(raw, left, right, head);
  kernel(raw + head * frameBytes, left + head, right + head, frames - head);
}

}  // namespace

SampleFormatChoice chooseSampleFormat(SampleKind kind, std::uint32_t bytesPerSample) noexcept {
  if (kind == SampleKind::Opaque) return {SampleFormatOpaque, SampleFormatOpaque};
  const auto fits = [&](const ChoiceRow& row) {
    return row.kind == kind && row.bytesPerSample == bytesPerSample;
  };
  const auto* const row = std::find_if(std::begin(kChoices), std::end(kChoices), fits);
  return row == std::end(kChoices) ? SampleFormatChoice{0, SampleFormatOther} : row->choice;
}

SampleFormat findSampleFormat(std::uint32_t number) noexcept {
  return number < kFormats.size() ? kFormats[number] : kFormats[0];
}

void swapFloats(char* raw, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i)
    std::reverse(raw + 4 * i, raw + 4 * i + 4);
}

void convertFrames(std::uint32_t number, const char* raw, std::size_t channels, std::size_t outputs,
                   float* const* buffers, std::size_t offset, std::size_t frames) noexcept {
  const SampleKernels& kernels = sampleKernels();
  const ConvertKernel convertKernel = kernels.convert[number];
  const std::size_t frameBytes = channels * kFormats[number].storedBytes;
  if (channels == 1 && outputs == 1) {
    convertKernel(raw, buffers[0] + offset, frames);
    return;
  }
  if (channels == 2 && outputs == 2 && kernels.stereo[number] != nullptr &&
      !overlap(buffers[0], buffers[1], offset + frames)) {
    convertStereo(kernels.stereo[number], raw, frameBytes, buffers[0] + offset, buffers[1] + offset,
                  frames);
    return;
  }
  std::size_t done = 0;
  if (channels >= 3 && kernels.squares[number] != nullptr)
    done = kernels.squares[number](raw, channels, outputs, buffers, offset, frames);
  // Few enough to stay in the nearest cache between conversion and their buffers.
  std::array<float, kMostChannelsInOnePass> scratch;
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): there is a channel at least
  const std::size_t step = scratch.size() / channels;
  for (; done < frames; done += step) {
    const std::size_t count = std::min(step, frames - done);
    convertKernel(raw + done * frameBytes, scratch.data(), count * channels);
    deinterleave(scratch.data(), channels, outputs, buffers, offset + done, count);
  }
}

void copyChannel(const float* source, std::size_t stride, float* destination,
                 std::size_t frames) noexcept {
  for (std::size_t i = 0; i < frames; ++i)
    sampleloops::copySample(source + i * stride, destination + i);
}

void deinterleave(const float* source, std::size_t channels, std::size_t outputs,
                  float* const* buffers, std::size_t offset, std::size_t frames) noexcept {
  sampleKernels().takeApart(source, channels, outputs, buffers, offset, frames);
}
