#include "Turns.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string_view>
#include <utility>

#include <benchmark/benchmark.h>

namespace turns {
namespace {

double processorSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
}

struct Line {
  std::string row;
  std::string against;
  double ours;    // milliseconds, median
  double theirs;  // milliseconds, median
  double ratio;   // how many times as fast as they, median
  double low;     // quartiles of the ratio
  double high;
  double goal;  // 0: none
  bool met() const { return goal == 0 || ratio >= goal; }
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

std::vector<Line>& lines() {
  static std::vector<Line> all;
  return all;
}

using Times = std::vector<std::vector<double>>;  // of each contender, by round

void report(const Row& row, const std::vector<Contender>& contenders, const Times& times,
            benchmark::State& state) {
  for (std::size_t who = 1; who < contenders.size(); ++who) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < times[0].size(); ++round)
      ratios.push_back(times[who][round] / times[0][round]);
    const auto goal = std::find_if(row.goals.begin(), row.goals.end(), [&](const Goal& one) {
      return one.against == contenders[who].who;
    });
    const Line line{row.name,
                    contenders[who].who,
                    1e3 * quantile(times[0], 0.5),
                    1e3 * quantile(times[who], 0.5),
                    quantile(ratios, 0.5),
                    quantile(ratios, 0.25),
                    quantile(ratios, 0.75),
                    goal == row.goals.end() ? 0 : goal->factor};
    state.counters["x " + line.against] = line.ratio;
    lines().push_back(line);
  }
}

void play(const Row& row, int rounds, benchmark::State& state) try {
  const std::vector<Contender> contenders = row.open();
  Times times(contenders.size());
  std::vector<std::size_t> order(contenders.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  int round = -1;  // one to warm up
  for (auto _ : state) {
    for (; round < rounds; ++round) {
      for (const std::size_t who : order) {
        if (contenders[who].prepare) contenders[who].prepare();
        const double before = processorSeconds();
        contenders[who].work();
        if (round >= 0) times[who].push_back(processorSeconds() - before);
      }
      std::rotate(order.begin(), order.begin() + 1, order.end());
    }
    state.SetIterationTime(quantile(times[0], 0.5));
  }
  report(row, contenders, times, state);
} catch (const std::exception& error) {
  state.SkipWithError(error.what());
  lines().push_back({row.name, error.what(), 0, 0, 0, 0, 0, 1});
}

std::string markdown() {
  std::ostringstream out;
  out << "| work | against | ours, ms | theirs, ms | times as fast | quartiles | at least | |\n"
         "|---|---|---|---|---|---|---|---|\n";
  char text[400];
  for (const Line& line : lines()) {
    std::snprintf(text, sizeof(text), "| %s | %s | %.3f | %.3f | %.2f | %.2f to %.2f | ",
                  line.row.c_str(), line.against.c_str(), line.ours, line.theirs, line.ratio,
                  line.low, line.high);
    out << text;
    if (line.goal == 0) {
      out << "| |\n";
      continue;
    }
    std::snprintf(text, sizeof(text), "%.2f | %s |\n", line.goal, line.met() ? "met" : "missed");
    out << text;
  }
  return out.str();
}

// Names of rows and contenders hold nothing that JSON would need escaped.
std::string json() {
  std::ostringstream out;
  out << "[";
  const char* comma = "";
  for (const Line& line : lines()) {
    out << comma << "\n  {\"work\": \"" << line.row << "\", \"against\": \"" << line.against
        << "\", \"ours_ms\": " << line.ours << ", \"theirs_ms\": " << line.theirs
        << ", \"ratio\": " << line.ratio << ", \"low\": " << line.low << ", \"high\": " << line.high
        << ", \"goal\": " << line.goal << ", \"met\": " << (line.met() ? "true" : "false") << "}";
    comma = ",";
  }
  out << "\n]\n";
  return out.str();
}

bool failed() {
  return std::any_of(lines().begin(), lines().end(),
                     [](const Line& line) { return line.ours == 0; });
}

}  // namespace

void add(Row row) {
  rows().push_back(std::move(row));
}

int run(int argc, char** argv) {
  constexpr std::string_view kTable = "--table=";
  int rounds = 31;
  std::string stem;
  std::vector<char*> passed = {argv[0]};
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--quick") {
      rounds = 3;
    } else if (argument.substr(0, kTable.size()) == kTable) {
      stem = argument.substr(kTable.size());
    } else {
      passed.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(passed.size());
  benchmark::Initialize(&count, passed.data());
  if (benchmark::ReportUnrecognizedArguments(count, passed.data())) return 2;
  for (const Row& row : rows()) {
    benchmark::RegisterBenchmark(
        row.name.c_str(), [&row, rounds](benchmark::State& state) { play(row, rounds, state); })
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  const std::string table = markdown();
  std::printf("\n%s", table.c_str());
  if (!stem.empty()) {
    std::ofstream(stem + ".md") << table;
    std::ofstream(stem + ".json") << json();
  }
  return failed() ? 1 : 0;
}

}  // namespace turns
