#include <set>

#include <fmt/format.h>

#include "PackageUpdate.h"
#include "Tool.h"

namespace {

struct Options {
  std::string package;
  std::vector<std::string> names;
  bool inPlace = false;
};

[[noreturn]] void refuse(const Options& options, const std::string& name,
                         const std::string& reason) {
  throw tools::Failure(fmt::format("cannot remove {} from {}: {}", tools::shown(name),
                                   tools::shown(options.package), reason));
}

// The entries, and what there are properties of though the entry is gone.
std::set<std::string> namesIn(const ziplayout::Layout& layout) {
  std::set<std::string> names;
  for (const ziplayout::Entry& entry : layout.entries())
    names.insert(entry.central.name);
  const std::optional<PropertyMap> properties = keepableProperties(layout);
  for (const auto& [name, ofName] : properties.value_or(PropertyMap()))
    names.insert(name);
  return names;
}

// A name that ends in "/" is the folder with everything in it, whether or not it has an entry.
std::set<std::string> choose(const ziplayout::Layout& layout, const Options& options) {
  const std::set<std::string> names = namesIn(layout);
  std::set<std::string> chosen;
  for (const std::string& name : options.names) {
    bool found = false;
    for (const std::string& other : names) {
      const bool inFolder =
          !name.empty() && name.back() == '/' && other.compare(0, name.size(), name) == 0;
      if (other != name && !inFolder) continue;
      found = true;
      chosen.insert(other);
    }
    if (!found) refuse(options, name, "no such entry");
  }
  return chosen;
}

void run(const Tool& tool, const Options& options) {
  PackageFile file = PackageFile::existing(tool, options.package);
  const ziplayout::Layout layout(options.package);
  layout.requireWhole();
  const std::set<std::string> chosen = choose(layout, options);
  if (chosen.count("mimetype") != 0) {
    refuse(options, "mimetype", "it is the package's type; type changes it");
  }
  Change change;
  change.removed.assign(chosen.begin(), chosen.end());
  change.inPlace = options.inPlace;
  changePackage(tool, file, layout, change);
}

}  // namespace

void addRemove(tools::Command& program, Tool& tool) {
  tools::Command command = program.command("remove", "Entries out of a package");
  auto options = std::make_shared<Options>();
  command.option("PACKAGE", options->package, "A package").required();
  command.option("NAME", options->names, "Entries; with a final / a folder and all in it")
      .required();
  command.flag("--in-place", options->inPlace,
               "Write a new directory into the file itself: quick for large packages, but the "
               "data stays in it, and a kill or power cut in the middle leaves no package");
  command.footer(
      "Examples:\n"
      "  qcfpkg remove notes.pkg letter.txt\n"
      "  qcfpkg remove notes.pkg pictures/");
  command.run([&tool, options] { run(tool, *options); });
}
