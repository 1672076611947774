#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "EntryData.h"
#include "Tool.h"
#include "ZipLayout.h"

namespace {

struct Options {
  std::string package;
  std::vector<std::string> names;
};

void toStandardOutput(const char* data, std::size_t size) {
  if (std::fwrite(data, 1, size, stdout) != size) {
    throw tools::Failure("cannot write standard output: " + tools::systemReason());
  }
}

void nowhere(const char*, std::size_t) {}

void read(const ziplayout::Layout& layout, const Options& options, const std::string& name,
          const ziplayout::Sink& sink) {
  try {
    readEntry(layout, *layout.find(name), sink);
  } catch (const ziplayout::DataError& error) {
    throw tools::Failure(fmt::format("cannot read {} of {}: {}", tools::shown(name),
                                     tools::shown(options.package), error.what()));
  }
}

void run(const Tool& tool, const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  for (const std::string& name : options.names) {  // all or none
    if (layout.find(name) == nullptr) {
      throw tools::Failure(fmt::format("cannot read {} of {}: no such entry", tools::shown(name),
                                       tools::shown(options.package)));
    }
  }
  for (const std::string& name : options.names) {
    const auto& entries = layout.entries();
    const auto copies = std::count_if(entries.begin(), entries.end(), [&](const auto& entry) {
      return entry.central.name == name;
    });
    if (copies == 1) continue;
    tool.note(fmt::format("{} has {} entries named {}; this is the first",
                          tools::shown(options.package), copies, tools::shown(name)));
  }
  // What went out cannot be taken back: damage must show before.
  for (const ziplayout::Sink& sink :
       {ziplayout::Sink(nowhere), ziplayout::Sink(toStandardOutput)}) {
    for (const std::string& name : options.names)
      read(layout, options, name, sink);
  }
}

}  // namespace

void addCat(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("cat", "The content of entries, to standard output");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  command.option("NAME", options->names, "Names of entries").required();
  command.footer(
      "Examples:\n"
      "  qcfpkg cat notes.pkg letter.txt\n"
      "  qcfpkg cat notes.pkg mimetype");
  command.run([&tool, options] { run(tool, *options); });
}
