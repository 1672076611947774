#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Run.h"

namespace crash {

// What a call into the system does to the files.
enum class Effect { Changes, Reads };

// Which call of a run it is: of each process, as they come to be, they are the same in every run.
struct CallNumber {
  std::size_t process = 0;
  std::size_t call = 0;

  friend bool operator==(const CallNumber& a, const CallNumber& b) {
    return a.process == b.process && a.call == b.call;
  }
};

// What becomes of one call of a program.
struct Fault {
  enum class Kind {
    None,
    End,   // the program and its children end before it, as if the system had stopped
    Fail,  // it does nothing and fails with `error`
    Last,  // it fails so, and each later one that asks the same of the same file
    Short  // of the bytes that it was to read or write it does half
  };
  Kind kind = Kind::None;
  CallNumber call;
  int error = 0;
};

struct Call {
  CallNumber number;
  std::string name;
  Effect effect = Effect::Reads;
  bool transfers = false;    // reads or writes more than a byte, so that it can be short
  std::string path;          // of its file, absolute; what has no name has one that is nowhere
  std::string to = {};       // the name that a rename or a link gives, absolute
  bool creates = false;      // an open that makes the file where there is none
  bool empties = false;      // an open that cuts off what is in the file
  std::uint64_t offset = 0;  // of a write; the size that ftruncate gives
  std::string bytes = {};    // of a write, as many as it did
  bool failed = false;       // as the fault would have it
};

// What a test says of a fault.
std::string describe(const Call& call, const Fault& fault);

struct Traced {
  support::Finished finished;
  std::vector<Call> calls;  // up to the faulty one and beyond
};

// Runs a program to its end and writes down the calls of it and its children that open, look at,
// read, change, name or sync its standard input and output, files below `command.folder` or
// temporary ones without a name, that make processes and wait for them, and that these processes
// talk by; one of them goes wrong as `fault` says. Raises std::runtime_error where the system does
// not let programs be traced, and for a program that goes on for ever.
Traced runTraced(const support::Command& command, const Fault& fault = {});

// How many of the calls of a run a sweep has fail.
enum class Sweep {
  All,
  Changes,  // those that change something, the first of each kind, and some of the others
  Kinds     // the first of each kind, and some of the others
};
// Their places in the list.
std::vector<std::size_t> chosen(const std::vector<Call>& calls, Sweep sweep);
// How to have a call of the list fail: with each of the errors, and once and for all where the same
// is asked of the same file again, if not `all` the first time only; and to cut it short where it
// can be.
std::vector<Fault> faultsOf(const std::vector<Call>& calls, std::size_t place,
                            const std::vector<int>& errors, bool all);

// Whether runTraced() can work here.
bool canTrace();

}  // namespace crash
