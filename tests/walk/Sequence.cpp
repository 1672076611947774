#include "walk/Sequence.h"

#include <random>
#include <sstream>

namespace walk {
namespace {

const char* const kOperationNames[] = {
    "open",         "write",       "seek",   "close",        "remove", "create directory",
    "set datetime", "set comment", "begin",  "begin other",  "end",    "cancel",
    "save as",      "in place",    "reopen", "read, seeking"};

}  // namespace

const char* nameOf(Operation operation) {
  return kOperationNames[operation];
}

Sequence randomSequence(unsigned seed) {
  std::mt19937 random(seed);
  Sequence sequence(random() % 40 + 1);
  for (Step& step : sequence) {
    // Openings come more often than the rest: without content there is little to see.
    const unsigned kind = static_cast<unsigned>(random() % (OperationCount + 6));
    step.operation = kind < OperationCount ? static_cast<Operation>(kind) : Open;
    step.a = static_cast<unsigned>(random() % 64);
    step.b = static_cast<unsigned>(random() % 4096);
  }
  return sequence;
}

std::string toText(const Sequence& sequence) {
  std::ostringstream text;
  for (const Step& step : sequence) {
    text << "\n  " << nameOf(step.operation) << " " << step.a << " " << step.b;
  }
  return text.str();
}

}  // namespace walk
