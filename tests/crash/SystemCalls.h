#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Run.h"

namespace crash {

// What a call into the system does to the files.
enum class Effect { Changes, Reads };

// What becomes of one call of a program.
struct Fault {
  enum class Kind {
    None,
    End,   // the program and its children end before it, as if the system had stopped
    Fail,  // it does nothing and fails with `error`
    Short  // of the bytes that it was to read or write it does half
  };
  Kind kind = Kind::None;
  std::size_t call = 0;  // zero based
  int error = 0;
};

struct Call {
  std::string name;
  Effect effect = Effect::Reads;
  bool transfers = false;    // reads or writes more than a byte, so that it can be short
  std::string path;          // of its file, absolute; one without a name has one that is nowhere
  std::string to = {};       // the name that a rename or a link gives, absolute
  bool creates = false;      // an open that makes the file where there is none
  bool empties = false;      // an open that cuts off what is in the file
  std::uint64_t offset = 0;  // of a write; the size that ftruncate gives
  std::string bytes = {};    // of a write, as many as it did
  bool failed = false;       // it was the faulty one
};

struct Traced {
  support::Finished finished;
  std::vector<Call> calls;  // up to the faulty one and beyond
};

// Runs a program to its end and writes down the calls of it and its children that open, read,
// change, name or sync its standard output, files below `command.folder` or temporary ones without
// a name; one of them goes wrong as `fault` says. Raises std::runtime_error where the system does
// not let programs be traced.
Traced runTraced(const support::Command& command, const Fault& fault = {});

// Whether runTraced() can work here.
bool canTrace();

}  // namespace crash
