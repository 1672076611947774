#include <ctime>
#include <limits>
#include <set>

#include <fmt/format.h>

#include "EntryData.h"
#include "SafeFolder.h"
#include "Texts.h"
#include "Tool.h"
#include "ZipLayout.h"
#include "common/Progress.h"

namespace {

struct Options {
  std::string package;
  std::vector<std::string> names;
  std::string folder = ".";
  bool listOnly = false;
  bool overwrite = false;
  std::uint64_t mostBytes = std::uint64_t{16} << 30;
  // What deflate cannot do: the sizes lie, or entries share their data.
  std::uint64_t mostRatio = 1100;
};

using Chosen = std::vector<const ziplayout::Entry*>;

[[noreturn]] void refuse(const Options& options, const std::string& name,
                         const std::string& reason) {
  throw tools::Failure(fmt::format("cannot extract {} of {}: {}", tools::shown(name),
                                   tools::shown(options.package), reason));
}

bool matches(const std::string& name, const std::string& wanted) {
  if (name == wanted || name == wanted + "/") return true;
  const std::string folder = wanted.back() == '/' ? wanted : wanted + "/";
  return name.compare(0, folder.size(), folder) == 0;
}

Chosen choose(const ziplayout::Layout& layout, const Options& options) {
  Chosen chosen;
  for (const ziplayout::Entry& entry : layout.entries()) {
    bool wanted = options.names.empty();
    for (const std::string& name : options.names) {
      wanted = wanted || (!name.empty() && matches(entry.central.name, name));
    }
    if (wanted) chosen.push_back(&entry);
  }
  for (const std::string& name : options.names) {
    bool found = false;
    for (const ziplayout::Entry* const entry : chosen) {
      found = found || (!name.empty() && matches(entry->central.name, name));
    }
    if (!found) refuse(options, name, "no such entry");
  }
  return chosen;
}

// Everything that can be known beforehand is refused before the first byte is written.
std::uint64_t refuseUnsafe(const ziplayout::Layout& layout, const Chosen& chosen,
                           const Options& options) {
  std::uint64_t total = 0;
  std::set<std::string> names;
  for (const ziplayout::Entry* const entry : chosen) {
    const ziplayout::Header& header = entry->central;
    const std::string reason = unsafeReason(header.name);
    if (!reason.empty()) refuse(options, header.name, reason);
    if (entry->isSymbolicLink()) refuse(options, header.name, "it is a symbolic link");
    if (entry->isEncrypted()) refuse(options, header.name, "it is encrypted");
    if (!names.insert(header.name).second) refuse(options, header.name, "the name comes twice");
    if (header.size / options.mostRatio > header.compressedSize) {
      refuse(options, header.name,
             fmt::format("it would grow more than {} times; --max-ratio allows more",
                         options.mostRatio));
    }
    if (header.size > options.mostBytes - total) {
      refuse(options, header.name,
             fmt::format("all would have more than {} bytes; --max-size allows more",
                         options.mostBytes));
    }
    total += header.size;
  }
  // Entries that share their data each stay below the limit.
  if (total / options.mostRatio > layout.file().size()) {
    throw tools::Failure(
        fmt::format("cannot extract {}: all would grow more than {} times; --max-ratio allows more",
                    tools::shown(options.package), options.mostRatio));
  }
  return total;
}

std::time_t modifiedTime(const ziplayout::Header& header) {
  if (dateText(header.date, header.time).empty()) return 0;
  std::tm local{};
  local.tm_year = (header.date >> 9) + 80;
  local.tm_mon = (header.date >> 5 & 15) - 1;
  local.tm_mday = header.date & 31;
  local.tm_hour = header.time >> 11;
  local.tm_min = header.time >> 5 & 63;
  local.tm_sec = (header.time & 31) * 2;
  local.tm_isdst = -1;
  const std::time_t moment = std::mktime(&local);
  return moment < 0 ? 0 : moment;
}

void extractAll(const Tool& tool, const ziplayout::Layout& layout, const Chosen& chosen,
                const Options& options, tools::Progress& progress) {
  SafeFolder folder(tool, options.folder);
  std::int64_t done = 0;
  for (const ziplayout::Entry* const entry : chosen) {
    const std::string& name = entry->central.name;
    if (entry->isFolder()) {
      folder.createFolder(name);
      continue;
    }
    const auto file = folder.createFile(name, options.overwrite);
    try {
      readEntry(layout, *entry, [&](const char* data, std::size_t size) {
        file->write(data, size);
        done += static_cast<std::int64_t>(size);
        progress.update(done);
      });
    } catch (const ziplayout::DataError& error) {
      refuse(options, name, error.what());
    }
    file->commit(modifiedTime(entry->central));
  }
  folder.sync();
}

void run(const Tool& tool, const Options& options) {
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  const Chosen chosen = choose(layout, options);
  const std::uint64_t total = refuseUnsafe(layout, chosen, options);
  if (options.listOnly) {
    for (const ziplayout::Entry* const entry : chosen) {
      fmt::print("{}\n", tools::shown(entry->central.name));
    }
    return;
  }
  tools::Progress progress("extracting", static_cast<std::int64_t>(total), tool.quiet,
                           tools::Progress::Unit::Bytes);
  extractAll(tool, layout, chosen, options, progress);
}

}  // namespace

void addExtract(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("extract", "Entries as files, never outside the folder");
  auto options = std::make_shared<Options>();
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  command.option("PACKAGE", options->package, "A package").required();
  command.option("NAME", options->names, "Entries or folders; all by default");
  command.option("-C,--folder", options->folder, "Where to; made where missing").folder();
  command.flag("--list-only", options->listOnly,
               "Check and print what would be extracted, write nothing");
  command.flag("--overwrite", options->overwrite, "Replace files that exist");
  command.option("--max-size", options->mostBytes, "Refuse more bytes altogether; 16 GiB")
      .range(0, kMost)
      .typeName("BYTES");
  command
      .option("--max-ratio", options->mostRatio,
              "Refuse what grows more than that; 1100, which only files made to "
              "deceive reach: less, as 200, is for those of strangers")
      .range(1, kMost)
      .typeName("TIMES");
  command.footer(
      "Names that lead out of the folder, and symbolic links, are refused before anything is\n"
      "written. Links that are in the folder already are not followed.\n"
      "\n"
      "Examples:\n"
      "  qcfpkg extract notes.pkg -C folder\n"
      "  qcfpkg extract notes.pkg pictures --folder folder --overwrite\n"
      "  qcfpkg extract --list-only notes.pkg");
  command.run([&tool, options] { run(tool, *options); });
}
