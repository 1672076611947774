// One cost for one size, for scaling.py, which draws how costs grow. Prints the seconds on the
// processor that the work took, the median of several times.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "package/QCFPackage.h"

#include "AudioSources.h"
#include "PackageRows.h"

namespace {

using Arguments = std::vector<std::string>;

struct Work {
  std::function<void()> run;
  std::function<void()> prepare = {};  // comes before each run, outside of its time; may be empty
};

struct Task {
  const char* usage;
  std::size_t arguments;
  std::function<Work(const Arguments&)> open;
};

double processorSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Seconds of one run, the mean of `repeats`.
double secondsOf(const Work& work, int repeats) {
  double seconds = 0;
  for (int done = 0; done < repeats;) {
    if (work.prepare) work.prepare();
    const double start = processorSeconds();
    // Work that needs no preparation is repeated under one reading of the clock.
    do {
      work.run();
      ++done;
    } while (!work.prepare && done < repeats);
    seconds += processorSeconds() - start;
  }
  return seconds / repeats;
}

// The median of several times, after a first run, which may get memory that nobody has used before.
// Short work is repeated within each; work of many seconds is done once.
double medianSeconds(const Work& work) {
  constexpr double kEnough = 0.02;
  const double once = std::max(secondsOf(work, 1), 1e-7);
  if (once > 10) return once;
  const int repeats = std::max(1, static_cast<int>(kEnough / once));
  const int turns = once > 2 ? 1 : once > 0.5 ? 3 : 7;
  std::vector<double> all;
  for (int turn = 0; turn < turns; ++turn)
    all.push_back(secondsOf(work, repeats));
  std::sort(all.begin(), all.end());
  return all[all.size() / 2];
}

Work walk(const Arguments& of) {
  return {[=] {
    const auto package = openPackage(of[0], std::ios::in);
    boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> iterator;
    package->initIterator(iterator, {}, "");
    while (iterator->isValid())
      iterator->increment();
    package->close();
  }};
}

// To empty a large file that is in the way takes time, too.
std::function<void()> removing(const std::string& path) {
  return [=] { std::filesystem::remove(path); };
}

Work create(const Arguments& of) {
  const Shape shape{std::stoull(of[1]), std::stoull(of[2]), std::stoull(of[3]),
                    of[4] == "deflated"};
  return {[=] { createPackage(of[0], shape); }, removing(of[0])};
}

Work save(const Arguments& of) {
  return {[=] { savePackage(of[0], of[1]); }, removing(of[1])};
}

// Appends to a copy of the package.
Work append(const Arguments& of) {
  const auto copy = [=] {
    std::filesystem::copy_file(of[0], of[1], std::filesystem::copy_options::overwrite_existing);
  };
  return {[=] { appendToPackage(of[1], "appended"); }, copy};
}

Work readEntry(const Arguments& of) {
  return {[=, block = std::make_shared<std::vector<char>>(32768)] {
    const auto package = openPackage(of[0], std::ios::in);
    const auto stream = package->getFile(of[1], true)->open(std::ios::in, false);
    std::streamsize total = 0;
    while (stream->read(block->data(), static_cast<std::streamsize>(block->size())),
           stream->gcount() > 0)
      total += stream->gcount();
    require(total == std::stoll(of[2]), "the entry has another size");
    stream->close();
    package->close();
  }};
}

Work readLastByte(const Arguments& of) {
  return {[=] {
    const auto package = openPackage(of[0], std::ios::in);
    const auto stream = package->getFile(of[1], true)->open(std::ios::in, false);
    stream->seekg(std::stoll(of[2]) - 1);
    require(stream->get() != EOF, "the last byte cannot be read");
    stream->close();
    package->close();
  }};
}

// Requests of one length behind each other, over and over from the start.
Work import(const Arguments& of) {
  const std::size_t channels = std::stoull(of[1]);
  const auto frames = static_cast<std::uint32_t>(std::stoul(of[2]));
  const std::int64_t requests = std::stoll(of[3]);
  const std::shared_ptr<AudioSource> source = openBundle(of[0]);
  const auto buffers = std::make_shared<Channels>(channels, frames);
  return {[=] {
    for (std::int64_t request = 0; request < requests; ++request)
      source->read(request * frames, frames, buffers->data());
  }};
}

const std::map<std::string, Task> kTasks = {
    {"open",
     {"PACKAGE", 1,
      [](const Arguments& of) {
        return Work{[of] { openPackage(of[0], std::ios::in)->close(); }};
      }}},
    {"walk", {"PACKAGE", 1, walk}},
    {"create", {"PACKAGE ENTRIES BLOCKS BLOCKSIZE stored|deflated", 5, create}},
    {"save", {"PACKAGE OTHER", 2, save}},
    {"append", {"PACKAGE COPY", 2, append}},
    {"read", {"PACKAGE ENTRY SIZE", 3, readEntry}},
    {"last", {"PACKAGE ENTRY SIZE", 3, readLastByte}},
    {"import", {"DOCUMENT CHANNELS FRAMES REQUESTS", 4, import}},
};

int usage() {
  std::fprintf(stderr, "scaling_benchmark: takes one of\n");
  for (const auto& [name, task] : kTasks)
    std::fprintf(stderr, "  %s %s\n", name.c_str(), task.usage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2) return usage();
  const auto task = kTasks.find(argv[1]);
  const Arguments arguments(argv + 2, argv + argc);
  if (task == kTasks.end() || arguments.size() != task->second.arguments) return usage();
  std::printf("%.9g\n", medianSeconds(task->second.open(arguments)));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "scaling_benchmark: %s\n", error.what());
  return 1;
}
