#include "Inputs.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "SafeFolder.h"
#include "Texts.h"
#include "common/Failure.h"
#include "common/FileStatus.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& source, const std::string& reason,
                         tools::ExitCode code = tools::ExitFailed) {
  throw tools::Failure(fmt::format("cannot add {}: {}", tools::shown(source), reason), code);
}

class Collector {
public:
  Collector(const Tool& tool, std::string package) : fTool(tool), fPackage(std::move(package)) {}

  void take(const std::string& argument) {
    const auto equals = argument.find('=');
    std::error_code error;
    if (equals == std::string::npos || fs::exists(argument, error)) {
      const std::string name = argument == "-" ? "-" : defaultName(argument);
      return argument == "-" ? refuse(argument, "standard input needs a NAME=", tools::ExitUsage)
                             : visit(name, argument);
    }
    std::string name = argument.substr(0, equals);
    const std::string source = argument.substr(equals + 1);
    if (source.empty()) refuse(argument, "there is no FILE behind NAME=", tools::ExitUsage);
    while (!name.empty() && name.back() == '/')
      name.pop_back();
    if (name.empty() && !fs::is_directory(source, error)) {
      refuse(argument, "there is no NAME in front of =", tools::ExitUsage);
    }
    visit(name, source);
  }

  std::vector<Input> finish() {
    std::set<std::string> names;
    bool readsInput = false;
    for (const Input& input : fInputs) {
      if (!names.insert(input.name).second) refuse(input.name, "two inputs have this name");
      if (input.source != "-") continue;
      if (readsInput) refuse(input.name, "standard input can be read only once", tools::ExitUsage);
      readsInput = true;
    }
    for (const Input& input : fInputs) {
      const std::string other = conflictingName(names, input.name);
      if (!other.empty()) {
        refuse(input.name,
               fmt::format("{} is added, too, and one is a folder", tools::shown(other)));
      }
    }
    return std::move(fInputs);
  }

private:
  // The path itself, without what leads to the root or out of the folder.
  static std::string defaultName(const std::string& path) {
    std::string name;
    for (const fs::path& part : fs::path(path).lexically_normal().relative_path()) {
      if (part == ".." || part == "." || part.empty()) continue;
      name += (name.empty() ? "" : "/") + part.string();
    }
    return name;
  }

  void visit(const std::string& name, const std::string& source, bool inFolder = false) {
    if (source == "-" && !inFolder) return put({name, "-", std::nullopt, std::time(nullptr)});
    struct stat status {};
    if (stat(source.c_str(), &status) != 0) refuse(source, tools::systemReason());
    if (S_ISDIR(status.st_mode)) return visitFolder(name, source, status.st_mtime);
    // A pipe is read where somebody says so: one in a folder would be waited for in vain.
    const bool isPipe = S_ISFIFO(status.st_mode) && !inFolder;
    if (!S_ISREG(status.st_mode) && !isPipe) refuse(source, "it is neither a file nor a folder");
    if (tools::isSameFile(source, fPackage)) refuse(source, "it is the package itself");
    Input input{name, source, std::nullopt, status.st_mtime};
    if (S_ISREG(status.st_mode)) input.size = static_cast<std::uint64_t>(status.st_size);
    if (S_ISREG(status.st_mode) && access(source.c_str(), R_OK) != 0) {
      refuse(source, tools::systemReason());
    }
    put(input);
  }

  // What is in a folder, in order. The standard library's iterator ends the process where there is
  // no memory for a name.
  static std::vector<std::string> namesIn(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), closedir);
    if (open == nullptr) refuse(folder, tools::systemReason());
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* const item = readdir(open.get())) {
      const std::string name = item->d_name;
      if (name != "." && name != "..") names.push_back(name);
      errno = 0;
    }
    if (errno != 0) refuse(folder, tools::systemReason());
    std::sort(names.begin(), names.end());
    return names;
  }

  void visitFolder(const std::string& name, const std::string& source, std::time_t modified) {
    const std::vector<std::string> leaves = namesIn(source);
    if (!name.empty()) put({name + "/", source, 0, modified});
    for (const std::string& leaf : leaves) {
      const fs::path path = fs::path(source) / leaf;
      std::error_code error;
      // A link to a folder may lead anywhere, back into this one, too.
      if (fs::is_symlink(path, error) && fs::is_directory(path, error)) {
        fTool.note(
            fmt::format("left out {}, a symbolic link to a folder", tools::shown(path.string())));
        continue;
      }
      if (tools::isSameFile(path.string(), fPackage)) continue;
      visit(name.empty() ? leaf : fmt::format("{}/{}", name, leaf), path.string(), true);
    }
  }

  void put(Input input) {
    const std::string reason = unsafeReason(input.name);
    if (!reason.empty()) refuse(input.name.empty() ? input.source : input.name, reason);
    if (!isUTF8(input.name)) refuse(input.name, "the name is not UTF-8");
    if (input.name.size() > 65535) refuse(input.name, "the name is too long");
    if (input.name == "mimetype") refuse(input.source, "mimetype is the package's type: see type");
    if (input.name == "META-INF/pkgproperties.xml") {
      refuse(input.source, "this entry holds the properties: see prop");
    }
    fInputs.push_back(std::move(input));
  }

  const Tool& fTool;
  std::string fPackage;
  std::vector<Input> fInputs;
};

}  // namespace

std::string conflictingName(const std::set<std::string>& names, const std::string& name) {
  for (auto slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
    std::string parent = name.substr(0, slash);
    if (names.count(parent) != 0) return parent;
  }
  if (name.back() == '/') return {};
  const auto below = names.lower_bound(name + "/");
  const bool isFolder = below != names.end() && below->compare(0, name.size() + 1, name + "/") == 0;
  return isFolder ? *below : std::string();
}

std::vector<Input> collectInputs(const Tool& tool, const std::vector<std::string>& arguments,
                                 const std::string& package) {
  Collector collector(tool, package);
  for (const std::string& argument : arguments)
    collector.take(argument);
  return collector.finish();
}
