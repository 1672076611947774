#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/Program.h"

// Why a name of an entry must not become a path; empty for a name that may: relative, without "..",
// ".", empty or drive segments, backslashes and control characters.
std::string unsafeReason(const std::string& name);

// A folder out of which nothing written through it can lead: each step of a path is opened relative
// to the one before it, and no symbolic link is followed below the folder itself.
class SafeFolder {
public:
  // Makes the folder where it is missing, durably. `session` outlives it. Raises tools::Failure.
  SafeFolder(const tools::Session& session, const std::string& path);
  ~SafeFolder();
  SafeFolder(const SafeFolder&) = delete;
  SafeFolder& operator=(const SafeFolder&) = delete;

  // A new file in the folder.
  class File {
  public:
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    void write(const char* data, std::size_t size);
    // Makes what was written durable, then gives it its name.
    void commit(std::time_t modified);

  private:
    friend class SafeFolder;
    File(int folder, const std::string& leaf, std::string shownPath, bool overwrite);
    void refuseWhatIsInTheWay() const;
    [[noreturn]] void fail() const;

    int fFolder;  // open as long as it is the last one that was opened
    std::string fLeaf;
    std::string fScratch;
    std::string fShownPath;
    int fDescriptor = -1;
    bool fOverwrite;
  };

  // `path` is a name that unsafeReason allows. Makes the folders on the way, and clears what killed
  // runs have left in the last of them, with a note. Raises tools::Failure, also where something is
  // in the way. The file must be gone before anything else is asked of the folder.
  std::unique_ptr<File> createFile(const std::string& path, bool overwrite);
  void createFolder(const std::string& path);
  // Makes the names of all files that were created durable. Raises tools::Failure.
  void sync();

private:
  // A folder on the way to the one that was opened last. Only the last few of a long way are open.
  struct Step {
    std::string name;
    int folder;  // -1: closed
    void close();
  };

  // The folder stays open until the next one is opened. An empty path is the folder itself.
  int openFolder(const std::string& path, const std::string& shownPath);
  // To so many steps of the way.
  void goBack(std::size_t steps);

  const tools::Session& fSession;
  std::string fPath;
  int fDescriptor;
  std::vector<Step> fWay;
  std::set<std::string> fChanged;  // the paths of the folders in which files were created
};
