#pragma once

#include <functional>
#include <string>
#include <vector>

// Rows of a table in which this project stands first and its peers behind it. All who stand in a
// row do the same work by turns, round by round, so that a busy machine slows them all alike; what
// counts are the medians of the ratios of each round. Time is that of the thread on the processor.

namespace turns {

struct Contender {
  std::string who;
  std::function<void()> work;
  std::function<void()> prepare = {};  // before each turn, not timed
};

// Ours is to be at least `factor` times as fast as `against`.
struct Goal {
  std::string against;
  double factor;
};

struct Row {
  std::string name;
  // Opens what the row needs, and checks the answers; raises std::exception where they differ. The
  // first contender is ours.
  std::function<std::vector<Contender>()> open;
  std::vector<Goal> goals;
};

void add(Row row);

// Runs the rows and prints the table. Takes the arguments of Google Benchmark, and
//   --quick         few rounds: shows that everything works
//   --table=<stem>  also writes the table to <stem>.md and <stem>.json
// Returns main's result.
int run(int argc, char** argv);

}  // namespace turns
