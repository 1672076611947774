#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Inputs.h"
#include "common/Progress.h"

// How far the writing of a package has come. An input counts as it is read, since it is written in
// another size; all else counts as it is written.
class WriteProgress {
public:
  // `copied` bytes are written beside the inputs.
  WriteProgress(const std::vector<Input>& inputs, std::uint64_t copied, bool quiet);

  void wrote(int size);
  void read(std::size_t size);

  // For as long as one lives, what is written is an input.
  class InInput {
  public:
    explicit InInput(WriteProgress& progress) : fProgress(progress) { progress.fInInput = true; }
    ~InInput() { fProgress.fInInput = false; }
    InInput(const InInput&) = delete;
    InInput& operator=(const InInput&) = delete;

  private:
    WriteProgress& fProgress;
  };

private:
  tools::Progress fProgress;
  std::int64_t fDone = 0;
  bool fInInput = false;
};
