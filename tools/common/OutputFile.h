#pragma once

#include <optional>
#include <string>

#include <sys/stat.h>

#include "common/Failure.h"
#include "common/Program.h"

namespace tools {

// An output that appears complete or not at all. It is written to a new file beside its target,
// which takes the target's place at commit(). Standard output ("-"), devices and pipes get it in
// one piece at commit().
class OutputFile {
public:
  // Clears what killed runs have left beside the target, with a note. Raises Failure when the new
  // file cannot be made.
  OutputFile(const Session& session, const std::string& target);
  // Removes what was not committed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Open for reading and writing, owned by this object.
  int descriptor() const noexcept { return fDescriptor; }

  // What whoever writes to the descriptor raises when that does not work.
  Failure failure(const std::string& reason) const;

  // A name by which the file can be opened once more, until commit().
  std::string path() const;

  // Makes what was written durable, then visible. Raises Failure, with the target as it was.
  void commit();

private:
  std::optional<struct stat> targetStatus() const;
  bool isPlainFileOrAbsent() const;
  void copyToTarget();
  void replaceTarget();
  [[noreturn]] void fail() const;

  std::string fTarget;  // absolute, symbolic links resolved; empty for standard output
  std::string fName = "standard output";  // the target in a message, as given
  std::string fWritten;  // in a message, what is being written: the target, or a temporary file
  std::string fScratch;  // empty for a file that has no name
  int fDescriptor = -1;
};

}  // namespace tools
