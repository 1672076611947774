#pragma once

#include <vector>

#include "support/NthCall.h"

// The zlib of a test program that links test_zlib_faults: its functions fail on demand, for the
// modules that the program loads, too, where it exports its symbols.
namespace zlibfaults {

enum class Function {
  DeflateInit,    // deflateInit2: no memory
  Deflate,        // deflate: fails, and takes nothing
  DeflateTaking,  // deflate: fails, and has taken its input
  DeflateEnd,     // deflateEnd: ends, and fails
  InflateInit,    // inflateInit2: no memory
  Inflate,        // inflate: no memory
  InflateEnd      // inflateEnd: ends, and fails
};

using support::Span;

// What was called, whether it failed or not.
struct Call {
  Function function;      // Deflate for each deflate
  const void* stream;     // from its Init to its End; then the next may stand there
  bool finishes = false;  // a deflate that has all the input
};

// From now on the calls of this function in this thread are counted, from 1, and the n-th fails,
// once or with all that follow. With 0 none does.
void fail(Function function, int n, Span span = Span::Once) noexcept;
// Ends that; returns how many calls there were.
int endFailing() noexcept;
// From now on the calls of every function in this thread are added there; to null, nowhere.
void note(std::vector<Call>* into) noexcept;

}  // namespace zlibfaults
