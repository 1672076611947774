// Paths and references: a path reduces to what the rules say, told here once more by other means,
// and a reference in an entry means the path that it leads to from where that entry stands.

#include <cstdlib>
#include <vector>

#include "package/source/PathRules.h"

#include "Input.h"
#include "unit/reading/Reading.h"

namespace {

constexpr pkg::PathCharacters kCharacters{'/', '.', '#'};

void require(bool holds) {
  if (!holds) std::abort();
}

// The segments between separators; at least one, which may be empty.
std::vector<std::string> split(const std::string& path) {
  std::vector<std::string> segments(1);
  for (const char c : path) {
    if (c == '/') {
      segments.emplace_back();
    } else {
      segments.back() += c;
    }
  }
  return segments;
}

// An anchor ends the path; what is in its own segment in front of it counts as one.
std::string reduced(const std::string& path, bool keepRoot) {
  const std::size_t anchor = path.find('#');
  const bool hasAnchor = anchor != std::string::npos;
  std::vector<std::string> segments = split(path.substr(0, anchor));
  std::string leaf = segments.back();
  segments.pop_back();
  if (leaf == "..") segments.push_back(leaf);
  if (leaf == "." || leaf == "..") leaf.clear();

  std::vector<std::string> kept;
  for (const std::string& segment : segments) {
    if (segment == "..") {
      if (!kept.empty()) kept.pop_back();
    } else if (!segment.empty() && segment != ".") {
      kept.push_back(segment);
    }
  }
  std::string result;
  for (const std::string& segment : kept)
    result += segment + '/';
  result += leaf + (hasAnchor ? path.substr(anchor) : "");
  if (result.empty()) return "/";
  return keepRoot && path.front() == '/' ? '/' + result : result;
}

void checkReduction(const std::string& path) {
  for (const bool keepRoot : {false, true}) {
    const auto raised = reading::raisedBy([&] {
      const std::string found = pkg::reducePath(path, keepRoot, kCharacters);
      require(found == reduced(path, keepRoot));
      require(pkg::reducePath(found, keepRoot, kCharacters) == found);
    });
    require(raised.code == (path.empty() ? 22 : -1));
  }
}

bool leavesThePackage(const std::string& reference) {
  const std::string upToSlash = reference.substr(0, reference.find('/'));
  return upToSlash.find(':') != std::string::npos || reference.compare(0, 2, "//") == 0;
}

// `name` is that of a file, as it stands in the package.
std::string meaning(const std::string& name, const std::string& reference) {
  if (leavesThePackage(reference)) return reference;
  if (!reference.empty() && reference[0] == '/') return reduced(reference, true);
  if (!reference.empty() && reference[0] == '#') return reduced('/' + name + reference, true);
  std::vector<std::string> steps = split(name);
  steps.pop_back();
  std::string path = "/";
  for (const std::string& step : steps)
    path += step + '/';
  return reduced(path + reference, true);
}

void checkReference(const std::string& name, const std::string& reference) {
  const reading::MemoryPackage package(reading::packageOf({name}));
  reading::Iterator entries;
  package->initIterator(entries, {}, "");
  const reading::File file = entries->dereference()->toFile();
  require(file->getName() == name);
  const std::string path = file->resolvePath(reference);
  require(path == meaning(name, reference));
  if (leavesThePackage(reference)) return;

  require(path.front() == '/');
  require(file->resolvePath(path) == path);
  // What begins with an anchor stays in the entry.
  const bool isPlain = name.find('#') == std::string::npos && reduced(name, false) == name;
  if (isPlain && !reference.empty() && reference[0] == '#')
    require(package->entryExists(path.substr(0, path.find('#'))) == pkg::PkgEntryFile);
}

}  // namespace

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned nameLength = input.byte();
  std::string name = input.bytes(nameLength);
  name.resize(std::min(name.size(), name.find('\0')));
  const std::string reference = input.rest();
  checkReduction(name);
  checkReduction(reference);
  checkReduction(name + reference);
  if (!name.empty() && name.back() != '/') checkReference(name, reference);
}
