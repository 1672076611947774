#include "WriteProgress.h"

namespace {

// 0 where an input does not tell its size.
std::int64_t totalOf(const std::vector<Input>& inputs, std::uint64_t copied) {
  std::uint64_t sum = copied;
  for (const Input& input : inputs) {
    if (!input.size) return 0;
    sum += *input.size;
  }
  return static_cast<std::int64_t>(sum);
}

}  // namespace

WriteProgress::WriteProgress(const std::vector<Input>& inputs, std::uint64_t copied, bool quiet)
    : fProgress("writing", totalOf(inputs, copied), quiet, tools::Progress::Unit::Bytes) {}

void WriteProgress::wrote(int size) {
  if (!fInInput) fProgress.update(fDone += size);
}

void WriteProgress::read(std::size_t size) {
  fProgress.update(fDone += static_cast<std::int64_t>(size));
}
