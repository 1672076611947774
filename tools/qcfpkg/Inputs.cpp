#include "Inputs.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "SafeFolder.h"
#include "Texts.h"
#include "common/Failure.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& source, const std::string& reason) {
  throw tools::Failure(fmt::format("cannot add {}: {}", tools::shown(source), reason));
}

class Collector {
public:
  explicit Collector(std::string package) : fPackage(std::move(package)) {}

  void take(const std::string& argument) {
    const auto equals = argument.find('=');
    std::error_code error;
    if (equals == std::string::npos || fs::exists(argument, error)) {
      const std::string name = argument == "-" ? "-" : defaultName(argument);
      return argument == "-" ? refuse(argument, "standard input needs a NAME=")
                             : visit(name, argument);
    }
    std::string name = argument.substr(0, equals);
    const std::string source = argument.substr(equals + 1);
    if (source.empty()) refuse(argument, "there is no FILE behind NAME=");
    while (!name.empty() && name.back() == '/')
      name.pop_back();
    visit(name, source);
  }

  std::vector<Input> finish() {
    for (std::size_t i = 0; i < fInputs.size(); ++i) {
      const std::string& name = fInputs[i].name;
      if (!fNames.insert(name).second) refuse(name, "two inputs have this name");
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

  void visit(const std::string& name, const std::string& source) {
    if (source == "-") return put({name, "-", std::nullopt, std::time(nullptr)});
    struct stat status {};
    if (stat(source.c_str(), &status) != 0) refuse(source, tools::systemReason());
    if (S_ISDIR(status.st_mode)) return visitFolder(name, source, status.st_mtime);
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
      refuse(source, "it is neither a file nor a folder");
    }
    std::error_code error;
    if (fs::equivalent(source, fPackage, error)) refuse(source, "it is the package itself");
    Input input{name, source, std::nullopt, status.st_mtime};
    if (S_ISREG(status.st_mode)) input.size = static_cast<std::uint64_t>(status.st_size);
    if (S_ISREG(status.st_mode) && access(source.c_str(), R_OK) != 0) {
      refuse(source, tools::systemReason());
    }
    put(input);
  }

  void visitFolder(const std::string& name, const std::string& source, std::time_t modified) {
    std::vector<fs::directory_entry> items;
    std::error_code error;
    for (fs::directory_iterator item(source, error), end; !error && item != end;
         item.increment(error)) {
      items.push_back(*item);
    }
    if (error) refuse(source, error.message());
    if (!name.empty()) put({name + "/", source, 0, modified});
    std::sort(items.begin(), items.end());
    for (const fs::directory_entry& item : items) {
      const std::string leaf = item.path().filename().string();
      // A link to a folder may lead anywhere, back into this one, too.
      if (item.is_symlink(error) && item.is_directory(error)) continue;
      if (fs::equivalent(item.path(), fPackage, error)) continue;
      visit(name.empty() ? leaf : name + "/" + leaf, item.path().string());
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

  std::string fPackage;
  std::vector<Input> fInputs;
  std::set<std::string> fNames;
};

}  // namespace

std::vector<Input> collectInputs(const std::vector<std::string>& arguments,
                                 const std::string& package) {
  Collector collector(package);
  for (const std::string& argument : arguments)
    collector.take(argument);
  return collector.finish();
}
