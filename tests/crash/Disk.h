#pragma once

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace crash {

using Disk = std::map<std::string, std::string>;  // every file with its bytes

// One thing that a program did to a named file.
struct Operation {
  enum class Kind { Empty, Write, Resize };
  Kind kind;
  std::string file;
  std::size_t offset = 0;  // of a write; the size of a Resize
  std::string bytes = {};  // of a write
};

using Journal = std::vector<Operation>;

constexpr std::size_t kSector = 512;
constexpr std::size_t kFew = 4;

// Does an operation to a disk; of a write only the bytes before `cut`, an offset in the file.
inline void perform(const Operation& operation, Disk& disk, std::size_t cut = std::string::npos) {
  std::string& file = disk[operation.file];
  if (operation.kind == Operation::Kind::Empty) {
    file.clear();
  } else if (operation.kind == Operation::Kind::Resize) {
    file.resize(operation.offset, '\0');
  } else if (cut > operation.offset) {
    const std::string bytes = operation.bytes.substr(0, cut - operation.offset);
    if (file.size() < operation.offset + bytes.size()) {
      file.resize(operation.offset + bytes.size(), '\0');
    }
    file.replace(operation.offset, bytes.size(), bytes);
  }
}

// Where the sectors end within a write, its own end left out.
inline std::vector<std::size_t> cuts(const Operation& operation) {
  std::vector<std::size_t> all;
  if (operation.kind != Operation::Kind::Write) return all;
  const std::size_t end = operation.offset + operation.bytes.size();
  for (std::size_t at = (operation.offset / kSector + 1) * kSector; at < end; at += kSector)
    all.push_back(at);
  return all;
}

// A disk that nobody has told to keep anything: each operation may or may not have reached it. From
// one seed to the next, half of them are lost or only a few.
inline Disk loseSome(const Journal& journal, std::size_t count, Disk disk, std::mt19937& random) {
  const unsigned oneIn = 2U << 2 * (random() % 3);
  for (std::size_t i = 0; i < count; ++i) {
    if (random() % oneIn != 0) perform(journal[i], disk);
  }
  return disk;
}

// The operations reach it in any order, and the crash comes within one of them: anywhere, or within
// the last few.
inline Disk reorder(const Journal& journal, std::size_t count, Disk disk, std::mt19937& random) {
  std::vector<std::size_t> order(count);
  for (std::size_t i = 0; i < count; ++i) {
    order[i] = i;
    std::swap(order[i], order[random() % (i + 1)]);
  }
  const std::size_t undone = random() % (random() % 2 == 0 ? count : std::min(count, kFew)) + 1;
  const std::size_t done = count - undone;
  for (std::size_t i = 0; i < done; ++i)
    perform(journal[order[i]], disk);
  const Operation& torn = journal[order[done]];
  const std::vector<std::size_t> places = cuts(torn);
  if (!places.empty()) perform(torn, disk, places[random() % places.size()]);
  return disk;
}

}  // namespace crash
