#pragma once

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "crash/Disk.h"
#include "crash/SystemCalls.h"

namespace crash {

// What a power cut keeps of what was not synced.
enum class Kept {
  All,
  Nothing,
  Names,  // and of the files' data nothing
  Data,   // and of the names nothing
  Some,   // names and writes by chance
  Torn    // names by chance, the data's writes in any order and the last one in part
};

// A disk under a traced program, below one folder. A file's data is safe once the file was synced,
// a name once its folder was; what a later sync would make safe may be there or not. The names that
// a rename gives and takes come and go together.
class TracedDisk {
public:
  // `files` and `folders` are what there was before the calls, named below `folder`, which is
  // absolute.
  TracedDisk(std::string folder, const Disk& files, const std::set<std::string>& folders,
             const std::vector<Call>& calls);

  // How many things were done to the disk.
  std::size_t steps() const { return fSteps.size(); }
  // The files by name, when the power goes after `count` steps.
  Disk afterCut(std::size_t count, Kept kept, std::mt19937& random) const;

private:
  using Names = std::map<std::string, std::string>;  // what each name stands for
  struct Step {
    enum class Kind { Data, Names, Sync };
    Kind kind;
    std::string place;    // the file whose data, or the folder whose names, it is about
    Operation data = {};  // its file is the one that a name stands for
    Names names = {};     // as they are given; for none where one is taken
  };

  void adopt(const Call& call);
  void open(const Call& call, const std::string& name);
  void rename(const std::string& from, const std::string& to, bool keepsFrom);
  void note(Step step);
  std::string below(const std::string& path) const;

  std::string fRoot;
  Disk fBefore;
  Names fNamesBefore;
  Names fNames;  // as the program sees them
  std::vector<Step> fSteps;
};

}  // namespace crash
