#include "Comparison.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

// Remembers the median of every benchmark. The time is that of the processor: all work is done in
// one thread, and a busy machine says nothing of it.
class Reporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      fSeconds[run.family_index] = {
          run.run_name.function_name,
          run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit)};
    }
  }

  void printRatios() const {
    std::string which;
    std::pair<std::string, double> first;
    for (const auto& [index, median] : fSeconds) {
      const auto& [name, seconds] = median;
      const std::size_t slash = name.rfind('/');
      const std::string who = name.substr(slash + 1);
      if (name.substr(0, slash) != which) {
        which = name.substr(0, slash);
        first = {who, seconds};
      }
      std::printf("%-20s %-12s %10.3f ms %8.2f times that of %s\n", which.c_str(), who.c_str(),
                  1e3 * seconds, seconds / first.second, first.first.c_str());
    }
  }

private:
  std::map<std::int64_t, std::pair<std::string, double>> fSeconds;  // by order of registration
};

}  // namespace

int runComparison(int argc, char** argv) {
  // What the caller gives stands behind these, and so overrides them.
  std::vector<std::string> arguments = {
      argv[0], "--benchmark_repetitions=7", "--benchmark_enable_random_interleaving=true",
      "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.1"};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  return 0;
}
