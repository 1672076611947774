#include "crash/TracedDisk.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

namespace crash {

namespace {

const std::string kNothing;
const std::string kFolder = "/";  // what the name of a folder stands for

std::string folderOf(const std::string& name) {
  return std::filesystem::path(name).parent_path().string();
}

void rebind(const std::map<std::string, std::string>& changes,
            std::map<std::string, std::string>& names) {
  for (const auto& [name, file] : changes) {
    if (file == kNothing) {
      names.erase(name);
    } else {
      names[name] = file;
    }
  }
}

// A file is found where its folders are.
bool isReached(const std::map<std::string, std::string>& names, const std::string& name) {
  for (std::string folder = folderOf(name); !folder.empty(); folder = folderOf(folder)) {
    if (names.count(folder) == 0) return false;
  }
  return true;
}

}  // namespace

TracedDisk::TracedDisk(std::string folder, const Disk& files, const std::set<std::string>& folders,
                       const std::vector<Call>& calls)
    : fRoot(std::move(folder)), fBefore(files) {
  for (const auto& [name, bytes] : files)
    fNamesBefore[name] = name;
  for (const std::string& name : folders)
    fNamesBefore[name] = kFolder;
  fNames = fNamesBefore;
  for (const Call& call : calls) {
    const bool isHere = call.path == fRoot || call.path.rfind(fRoot + "/", 0) == 0;
    if (isHere && !call.failed) adopt(call);
  }
}

std::string TracedDisk::below(const std::string& path) const {
  return path == fRoot ? std::string() : path.substr(fRoot.size() + 1);
}

void TracedDisk::note(Step step) {
  if (step.kind == Step::Kind::Names) rebind(step.names, fNames);
  fSteps.push_back(std::move(step));
}

void TracedDisk::open(const Call& call, const std::string& name) {
  const auto known = fNames.find(name);
  if (known == fNames.end()) {
    if (!call.creates) return;
    // A name may be given to one file after the other.
    const std::string file = name + " " + std::to_string(fSteps.size());
    note({Step::Kind::Names, folderOf(name), {}, {{name, file}}});
    note({Step::Kind::Data, file, {Operation::Kind::Empty, file}});
  } else if (call.empties) {
    note({Step::Kind::Data, known->second, {Operation::Kind::Empty, known->second}});
  }
}

void TracedDisk::rename(const std::string& from, const std::string& to, bool keepsFrom) {
  if (folderOf(from) != folderOf(to))
    throw std::runtime_error("renamed out of its folder: " + from);
  Names names = {{to, fNames.at(from)}};
  if (!keepsFrom) names[from] = kNothing;
  note({Step::Kind::Names, folderOf(to), {}, names});
}

void TracedDisk::adopt(const Call& call) {
  const std::string name = below(call.path);
  const auto known = fNames.find(name);
  const auto is = [&](const char* word) { return call.name.rfind(word, 0) == 0; };
  if (is("open")) {
    open(call, name);
  } else if (is("mkdir")) {
    if (known == fNames.end()) note({Step::Kind::Names, folderOf(name), {}, {{name, kFolder}}});
  } else if (is("fsync") || is("fdatasync")) {
    const bool isFolder = name.empty() || (known != fNames.end() && known->second == kFolder);
    if (isFolder || known != fNames.end()) {
      note({Step::Kind::Sync, isFolder ? name : known->second});
    }
  } else if (known == fNames.end()) {
    return;  // a file without a name is nobody's after the cut
  } else if (is("write") || is("pwrite")) {
    const std::string& file = known->second;
    note({Step::Kind::Data,
          file,
          {Operation::Kind::Write, file, static_cast<std::size_t>(call.offset), call.bytes}});
  } else if (is("ftruncate")) {
    const std::string& file = known->second;
    note({Step::Kind::Data,
          file,
          {Operation::Kind::Resize, file, static_cast<std::size_t>(call.offset)}});
  } else if (is("rename") || is("link")) {
    rename(name, below(call.to), is("link"));
  } else if (is("unlink")) {
    note({Step::Kind::Names, folderOf(name), {}, {{name, kNothing}}});
  }
}

Disk TracedDisk::afterCut(std::size_t count, Kept kept, std::mt19937& random) const {
  std::map<std::string, std::size_t> synced;  // up to which step each place is safe
  for (std::size_t i = 0; i < count; ++i) {
    if (fSteps[i].kind == Step::Kind::Sync) synced[fSteps[i].place] = i;
  }
  const auto keepsName = [&] {
    const bool byChance = kept == Kept::Some || kept == Kept::Torn;
    return kept == Kept::All || kept == Kept::Names || (byChance && random() % 2 == 0);
  };
  Disk data = fBefore;
  Names names = fNamesBefore;
  Journal rest;
  for (std::size_t i = 0; i < count; ++i) {
    const Step& step = fSteps[i];
    const auto found = synced.find(step.place);
    const bool isSafe = found != synced.end() && i < found->second;
    if (step.kind == Step::Kind::Names) {
      if (isSafe || keepsName()) rebind(step.names, names);
    } else if (step.kind == Step::Kind::Data) {
      isSafe ? perform(step.data, data) : rest.push_back(step.data);
    }
  }
  if (kept == Kept::Torn && !rest.empty()) {
    data = reorder(rest, rest.size(), std::move(data), random);
  } else if (kept == Kept::Some) {
    data = loseSome(rest, rest.size(), std::move(data), random);
  } else if (kept == Kept::All || kept == Kept::Data) {
    for (const Operation& operation : rest)
      perform(operation, data);
  }
  Disk files;
  for (const auto& [name, file] : names) {
    if (file != kFolder && isReached(names, name)) files[name] = data[file];
  }
  return files;
}

}  // namespace crash
