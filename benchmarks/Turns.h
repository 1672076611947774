#pragma once

#include <functional>
#include <string>
#include <vector>

// Rows of a table in which this project stands first and its peers behind it. All who stand in a
// row do the same work by turns, round by round, so that a busy machine slows them all alike; what
// counts are the medians of the ratios of each round. The time that is compared is that on the
// processor, the system's part included; the clock on the wall is told beside it.

namespace turns {

struct Contender {
  std::string who;
  // Raises std::exception when it fails. In a process of its own it may give the process away to
  // a program (see become).
  std::function<void()> work;
  std::function<void()> prepare = {};  // before each turn, not timed
  // Does less than the whole work, or is a prototype of it: for peak memory only peers count, where
  // there are any.
  bool isFloor = false;
  std::function<void()> cleanUp = {};  // after each turn, not timed
};

enum class Place {
  Here,       // in this process: for work on what stays open between the turns
  OwnProcess  // each turn in a new process, so that its peak memory is its own as well
};

struct Row {
  std::string name;
  // Opens what the row needs, and checks the answers; raises std::exception where they differ. The
  // first contender is ours. Rows are played in passes over all of them: for work in this process
  // each pass opens anew.
  std::function<std::vector<Contender>()> open;
  Place place = Place::Here;
  // All rounds in one pass, for work that fills much memory: a virtual machine gives back to its
  // host what is free for a moment, and gets it again at a fifth of the speed.
  bool inOneGo = false;
  int repeats = 1;  // of the work in one turn, for work that is short
  // For a row in this process: the work from the opening of its files on, of those whose peak
  // memory is to be compared, ours first. Each does it once, in a process of its own.
  std::vector<Contender> whole = {};
};

// Something to measure that has no peer.
struct Fact {
  std::string name;
  std::function<double()> measure;
  double atMost = 0;  // 0: nothing is asked
};

void add(Row row);
void add(Fact fact);

// Does work in a process of its own, so that the turns find the heap of a fresh program: what
// malloc learns from large blocks that come and go would pass to all of them. Raises
// std::runtime_error when the work fails.
void apart(const std::function<void()>& work);

// The same; returns its peak memory in KiB.
long peakOf(const std::function<void()>& work);

// The same; returns what `work` returns.
double valueOf(const std::function<double()>& work);

// Makes this process the program `words[0]`, silent, in `folder`. Returns never; raises
// std::runtime_error when there is no such program.
[[noreturn]] void become(const std::vector<std::string>& words, const std::string& folder = ".");

// Lets `addRows` add the rows, runs them and prints the tables. Takes the arguments of Google
// Benchmark, and
//   --quick         few rounds, and small work: shows that everything works, and judges no speed
//   --table=<stem>  also writes the tables to <stem>.md and <stem>.json
//   --help          prints `about` and the options
// Returns main's result: 0, 1 when a row could not be run, 2 for an unknown option. A goal that is
// missed is told in the table and no failure.
int run(int argc, char** argv, const char* about, const std::function<void(bool quick)>& addRows);

}  // namespace turns
