#include "Turns.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <map>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "Targets.h"
#include "TurnsTable.h"

namespace turns {
namespace {

// Rows are played in passes over all of them: what else the machine does changes from second to
// second, and so does where memory lies from opening to opening. A row should see some of each.
// Work that is long gets fewer rounds.
constexpr int kPasses = 24;
constexpr int kMostRounds = 48;
constexpr int kFewestRounds = 2;
constexpr int kEnoughRounds = 5;
constexpr double kSecondsForRowHere = 4;
constexpr double kSecondsForRow = 7;
constexpr double kMostSecondsForRow = 30;  // where the rounds are not enough yet

double seconds(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

// Between two values in proportion, so that few rounds have quartiles of their own.
double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

struct Turn {
  double processor = 0;  // seconds
  double wall = 0;       // seconds
  long peak = 0;         // KiB; 0 where it is not known
};

Turn takeTurnHere(const std::function<void()>& work, int repeats) {
  const double processor = seconds(CLOCK_PROCESS_CPUTIME_ID);
  const double wall = seconds(CLOCK_MONOTONIC);
  for (int i = 0; i < repeats; ++i)
    work();
  return {(seconds(CLOCK_PROCESS_CPUTIME_ID) - processor) / repeats,
          (seconds(CLOCK_MONOTONIC) - wall) / repeats};
}

// In the child: tells its times through `out`, unless a program takes its place.
[[noreturn]] void workAndTell(const std::function<void()>& work, int repeats, int out) {
  try {
    const Turn turn = takeTurnHere(work, repeats);
    ::_exit(::write(out, &turn, sizeof(turn)) == sizeof(turn) ? 0 : 1);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  ::_exit(1);
}

Turn takeTurnInProcess(const std::function<void()>& work, int repeats) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  const double start = seconds(CLOCK_MONOTONIC);
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) workAndTell(work, repeats, ends[1]);
  ::close(ends[1]);
  Turn turn;
  const bool told = ::read(ends[0], &turn, sizeof(turn)) == sizeof(turn);
  ::close(ends[0]);
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("a contender failed");
  if (!told) {
    turn.processor = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    turn.wall = seconds(CLOCK_MONOTONIC) - start;
  }
  turn.peak = usage.ru_maxrss;
  return turn;
}

using Turns = std::vector<std::vector<Turn>>;  // of each contender, by round

double median(const std::vector<Turn>& turns, double Turn::*value) {
  std::vector<double> values;
  for (const Turn& turn : turns)
    values.push_back(turn.*value);
  return quantile(std::move(values), 0.5);
}

// What else a process holds only adds to its peak.
long leastPeak(const std::vector<Turn>& turns) {
  long least = turns[0].peak;
  for (const Turn& turn : turns)
    least = std::min(least, turn.peak);
  return least;
}

std::vector<double> ratios(const std::vector<Turn>& ours, const std::vector<Turn>& theirs,
                           double Turn::*value) {
  std::vector<double> all;
  for (std::size_t round = 0; round < ours.size(); ++round)
    all.push_back(theirs[round].*value / (ours[round].*value));
  return all;
}

class Contest {
public:
  explicit Contest(bool quick) : fQuick(quick) {}

  void play(const Row& row, benchmark::State& state) try {
    for (auto _ : state) {
      playOn(row);
      state.SetIterationTime(median(fPlayed[row.name].turns[0], &Turn::processor));
    }
    const auto& [contenders, turns, taken] = fPlayed[row.name];
    for (std::size_t who = 1; who < contenders.size(); ++who) {
      state.counters["x " + contenders[who].who] =
          quantile(ratios(turns[0], turns[who], &Turn::processor), 0.5);
    }
  } catch (const std::exception& error) {
    fail(row.name, error.what(), state);
  }

  // Plays the later passes of those rows that have been played, and fills the table with what came
  // of all of them.
  void finish(const std::vector<Row>& rows) {
    for (fPass = 1; fPass < kPasses; ++fPass) {
      for (const Row& row : rows) {
        if (fPass < passesOf(row) && fPlayed.count(row.name) != 0) playOn(row);
      }
    }
    for (const Row& row : rows) {
      const auto played = fPlayed.find(row.name);
      if (played == fPlayed.end()) continue;
      const auto& [contenders, turns, taken] = played->second;
      reportSpeed(row, contenders, turns);
      if (row.place == Place::OwnProcess) reportMemory(row.name, contenders, leastPeaks(turns));
    }
  }

  void weigh(const Row& row, benchmark::State& state) try {
    std::vector<long> peaks;
    for (auto _ : state) {
      for (const Contender& one : row.whole)
        peaks.push_back(peakOf(one.work));
      state.SetIterationTime(0);
    }
    reportMemory(row.name, row.whole, peaks);
  } catch (const std::exception& error) {
    fail(row.name, error.what(), state);
  }

  void take(const Fact& fact, benchmark::State& state) try {
    double value = 0;
    for (auto _ : state) {
      value = fact.measure();
      state.SetIterationTime(0);
    }
    state.counters["measured"] = value;
    fTable.facts.push_back({fact.name, value, fact.atMost});
  } catch (const std::exception& error) {
    fail(fact.name, error.what(), state);
  }

  const Table& table() const { return fTable; }

private:
  struct Played {
    std::vector<Contender> contenders;
    Turns turns;
    double taken = 0;  // seconds
  };

  void fail(const std::string& name, const char* reason, benchmark::State& state) {
    state.SkipWithError(reason);
    fTable.failures.push_back({name, reason});
    fPlayed.erase(name);
  }

  int passesOf(const Row& row) const { return fQuick || row.inOneGo ? 1 : kPasses; }

  // Each pass has its share of the rounds and of the time.
  bool goesOn(const Row& row, const Played& played) const {
    const int rounds = played.turns.empty() ? 0 : static_cast<int>(played.turns[0].size());
    const bool isLast = fPass + 1 == passesOf(row);
    if (rounds == 0 || (isLast && rounds < kFewestRounds)) return true;
    if (fQuick) return false;
    const double share = static_cast<double>(fPass + 1) / passesOf(row);
    const double seconds = row.place == Place::Here ? kSecondsForRowHere
                           : rounds < kEnoughRounds ? kMostSecondsForRow
                                                    : kSecondsForRow;
    return rounds < kMostRounds * share && played.taken < seconds * share;
  }

  // The rounds of one pass.
  void playOn(const Row& row) {
    Played& played = fPlayed[row.name];
    if (!goesOn(row, played)) return;
    if (row.place == Place::Here || played.contenders.empty()) played.contenders = row.open();
    const std::vector<Contender>& contenders = played.contenders;
    played.turns.resize(contenders.size());
    std::vector<std::size_t> order(contenders.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const std::size_t first = played.turns[0].size() % order.size();
    std::rotate(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(first), order.end());
    while (goesOn(row, played)) {
      const double start = seconds(CLOCK_MONOTONIC);
      for (const std::size_t who : order) {
        const Contender& one = contenders[who];
        if (one.prepare) one.prepare();
        played.turns[who].push_back(row.place == Place::Here
                                        ? takeTurnHere(one.work, row.repeats)
                                        : takeTurnInProcess(one.work, row.repeats));
        if (one.cleanUp) one.cleanUp();
      }
      played.taken += seconds(CLOCK_MONOTONIC) - start;
      std::rotate(order.begin(), order.begin() + 1, order.end());
    }
    if (row.place == Place::Here || fPass + 1 == passesOf(row)) closeAll(played);
  }

  // What the contenders hold open goes; who they are is still to be told.
  static void closeAll(Played& played) {
    for (Contender& one : played.contenders)
      one = {one.who, {}, {}, one.isFloor};
  }

  void reportSpeed(const Row& row, const std::vector<Contender>& contenders, const Turns& turns) {
    for (std::size_t who = 1; who < contenders.size(); ++who) {
      const std::vector<double> all = ratios(turns[0], turns[who], &Turn::processor);
      fTable.speed.push_back(
          {row.name, contenders[who].who, 1e3 * median(turns[0], &Turn::processor),
           1e3 * median(turns[who], &Turn::processor), quantile(all, 0.5), quantile(all, 0.25),
           quantile(all, 0.75), quantile(ratios(turns[0], turns[who], &Turn::wall), 0.5),
           target(row.name, contenders[who].who)});
    }
  }

  static std::vector<long> leastPeaks(const Turns& turns) {
    std::vector<long> peaks;
    for (const std::vector<Turn>& ofOne : turns)
      peaks.push_back(leastPeak(ofOne));
    return peaks;
  }

  void reportMemory(const std::string& row, const std::vector<Contender>& contenders,
                    const std::vector<long>& peaks) {
    const bool onlyFloors = std::all_of(contenders.begin() + 1, contenders.end(),
                                        [](const Contender& one) { return one.isFloor; });
    MemoryLine line{row, peaks[0], {}, 0};
    for (std::size_t who = 1; who < contenders.size(); ++who) {
      if ((!contenders[who].isFloor || onlyFloors) &&
          (line.leanest.empty() || peaks[who] < line.theirs)) {
        line.leanest = contenders[who].who;
        line.theirs = peaks[who];
      }
    }
    fTable.memory.push_back(line);
  }

  const bool fQuick;
  int fPass = 0;
  std::map<std::string, Played> fPlayed;
  Table fTable;
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

std::vector<Fact>& facts() {
  static std::vector<Fact> all;
  return all;
}

template <class Work>
void enlist(const std::string& name, Work work) {
  benchmark::RegisterBenchmark(name.c_str(), work)
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void printHelp(const char* program, const char* about) {
  std::printf(
      "%s\n\nusage: %s [--quick] [--table=STEM] [option of Google Benchmark]...\n"
      "  --quick                     few rounds, and small work: shows that all works, judges no "
      "speed\n"
      "  --table=STEM                also writes the tables to STEM.md and STEM.json\n"
      "  --benchmark_filter=PATTERN  only the rows whose names match\n"
      "  --benchmark_list_tests      the names of the rows\n",
      about, program);
}

}  // namespace

void add(Row row) {
  rows().push_back(std::move(row));
}

void add(Fact fact) {
  facts().push_back(std::move(fact));
}

void apart(const std::function<void()>& work) {
  takeTurnInProcess(work, 1);
}

long peakOf(const std::function<void()>& work) {
  return takeTurnInProcess(work, 1).peak;
}

double valueOf(const std::function<double()>& work) {
  void* const shared =
      ::mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw std::runtime_error("cannot share memory");
  auto* const value = static_cast<double*>(shared);
  apart([&] { *value = work(); });
  const double result = *value;
  ::munmap(shared, sizeof(double));
  return result;
}

void become(const std::vector<std::string>& words, const std::string& folder) {
  std::vector<char*> arguments;
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const int silence = ::open("/dev/null", O_RDWR);
  if (silence >= 0 && ::chdir(folder.c_str()) == 0) {
    ::dup2(silence, STDIN_FILENO);
    ::dup2(silence, STDOUT_FILENO);
    ::execvp(arguments[0], arguments.data());
  }
  throw std::runtime_error("cannot run " + words[0]);
}

int run(int argc, char** argv, const char* about, const std::function<void(bool quick)>& addRows) {
  constexpr std::string_view kTable = "--table=";
  bool quick = false;
  std::string stem;
  std::vector<char*> passed = {argv[0]};
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--help") {
      printHelp(argv[0], about);
      return 0;
    }
    if (argument == "--quick") {
      quick = true;
    } else if (argument.substr(0, kTable.size()) == kTable) {
      stem = argument.substr(kTable.size());
    } else {
      passed.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(passed.size());
  benchmark::Initialize(&count, passed.data());
  if (benchmark::ReportUnrecognizedArguments(count, passed.data())) return 2;
  addRows(quick);
  Contest contest(quick);
  // Peaks come first: a process that has worked has free memory, which its children would fill.
  for (const Fact& fact : facts())
    enlist(fact.name, [&](benchmark::State& state) { contest.take(fact, state); });
  for (const Row& row : rows()) {
    if (row.whole.empty()) continue;
    enlist(row.name + ", peak memory", [&](benchmark::State& state) { contest.weigh(row, state); });
  }
  for (const Row& row : rows())
    enlist(row.name, [&](benchmark::State& state) { contest.play(row, state); });
  benchmark::RunSpecifiedBenchmarks();
  contest.finish(rows());
  const Table& table = contest.table();
  std::printf("\n%s", table.markdown().c_str());
  if (!stem.empty()) {
    std::ofstream(stem + ".md") << table.markdown();
    std::ofstream(stem + ".json") << table.json();
  }
  return table.failures.empty() ? 0 : 1;
}

}  // namespace turns
