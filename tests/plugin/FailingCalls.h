#pragma once

#include "support/NthCall.h"

// The functions of the C library by which a plug-in reaches its files and the folder for temporary
// ones, for test programs that link FailingCalls.cpp and export their symbols: they fail on demand,
// for the modules that the program loads, too.
namespace failingcalls {

enum class Call {
  Open,        // fopen: refused
  Temporary,   // open and fdopen, which make a temporary file: refused
  Read,        // fread: nothing comes, and the stream has an error
  ShortRead,   // fread: half of what was asked for
  Write,       // fwrite: nothing goes, and the stream has an error
  Seek,        // fseeko
  Tell,        // ftello
  Flush,       // fflush
  Close,       // fclose: closes, and fails
  Remove,      // remove: the file stays
  Status,      // stat
  MakeFolder,  // mkdir
  User         // getpwuid_r: there is none
};

using support::Span;

// From now on the calls of this kind in this thread are counted, from 1, and the n-th fails, once
// or with all that follow. With 0 none does.
void fail(Call call, int n, Span span) noexcept;
// Ends that; returns how many calls there were.
int endFailing() noexcept;

}  // namespace failingcalls
