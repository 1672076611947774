#pragma once

#include <string>
#include <vector>

namespace walk {

enum Operation {
  Open,
  Write,
  Seek,
  Close,
  Remove,
  CreateDirectory,
  SetDateTime,
  SetComment,
  Begin,
  BeginOther,
  End,
  Cancel,
  SaveAs,
  InPlace,
  Reopen,
  ReadSeeking,
  OperationCount
};

// The numbers choose among what the operation can be done to.
struct Step {
  Operation operation;
  unsigned a, b;
};
using Sequence = std::vector<Step>;

const char* nameOf(Operation operation);
Sequence randomSequence(unsigned seed);
std::string toText(const Sequence& sequence);

}  // namespace walk
