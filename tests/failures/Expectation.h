#pragma once

#include <string>
#include <vector>

#include "failures/Ways.h"
#include "support/FileSystems.h"

// What a failing call must lead to, told from the calls of the run in which none fails.
namespace failures {

enum class Phase { Opening, Changing, Saving, Closing };

struct Trace {
  std::vector<support::RecordingFileSystem::Call> calls;
  std::vector<std::size_t> phases;  // where Changing, Saving and Closing begin

  Phase phaseOf(std::size_t call) const;
};

enum class Effect {
  Raised,    // the file system's own exception comes out
  Code29,    // PackageIOException 29: the output failed while an entry was copied into it
  Short,     // a record was cut short: `code` comes out
  Parser,    // the client's parser saw its stream fail
  Swallowed  // nothing comes out; at most one entry is cut short, or the type is lost
};

struct Expectation {
  Effect effect;
  std::string code = {};
};

// Of the call at `index`, which fails as `failure` says, on the given way.
//
// Swallowed, and nowhere else:
//  - a read, and the seek before it, of what an entry is copied from, by a save or into the
//    temporary copy that seeking needs: the copy is a reader of an istream, whose end is all it
//    asks for;
//  - the same when the type of a package is read: the token is then empty;
//  - the close of a temporary file by a stream that is let go without close();
//  - the deletion of a temporary file that goes with its entry;
//  - a short read of data that is asked for again.
Expectation expectation(const Way& way, const Trace& trace, std::size_t index,
                        support::Failure failure);

// The seek that is made where a file is said to be able to, or the call itself: what the question
// raises comes out as from the seek.
std::size_t seekOf(const Trace& trace, std::size_t index);

// Where the save begins to write its directory; the length of the trace where it writes none.
std::size_t directoryBegin(const Way& way, const Trace& trace);
// Where its output is open; 0 where it is from the start.
std::size_t outputBegin(const Way& way, const Trace& trace);

}  // namespace failures
