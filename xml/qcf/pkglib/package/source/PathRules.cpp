#include "package/source/PathRules.h"

#include <cstddef>
#include <vector>

#include "package/source/PackageException.h"

namespace pkg {

namespace {

enum class State { SegmentStart, Dot, DotDot, Name };

// Scans a path once and keeps the segments that survive, each with its own separator.
class PathReducer {
public:
  PathReducer(const std::string& path, const PathCharacters& characters)
      : fPath(path), fCharacters(characters) {
    fKept.reserve(10);
  }

  void scan() {
    for (std::size_t i = 0; i < fPath.size(); ++i) {
      const char c = fPath[i];
      if (c == fCharacters.anchor) {
        if (fState == State::DotDot) dropLast();
        keepTail(fState == State::Name ? fStart : i);
        return;
      }
      if (c == fCharacters.separator) {
        endSegment(i);
      } else {
        extendSegment(i, c == fCharacters.dot);
      }
    }
    if (fState == State::DotDot) dropLast();
    if (fState == State::Name) keepTail(fStart);
  }

  std::string join(bool keepRoot) const {
    std::string result;
    result.reserve(fPath.size() + 1);
    for (const Segment& segment : fKept)
      result.append(fPath, segment.start, segment.length);
    if (result.empty()) return std::string(1, fCharacters.separator);
    if (keepRoot && fPath.front() == fCharacters.separator) {
      result.insert(result.begin(), fCharacters.separator);
    }
    return result;
  }

private:
  struct Segment {
    std::size_t start;
    std::size_t length;
  };

  void endSegment(std::size_t separator) {
    if (fState == State::DotDot) dropLast();
    if (fState == State::Name) fKept.push_back({fStart, separator + 1 - fStart});
    fState = State::SegmentStart;
  }

  void extendSegment(std::size_t index, bool isDot) {
    switch (fState) {
      case State::SegmentStart:
        fStart = index;
        fState = isDot ? State::Dot : State::Name;
        break;
      case State::Dot:
        fState = isDot ? State::DotDot : State::Name;
        break;
      case State::DotDot:
        fState = State::Name;
        break;
      case State::Name:
        break;
    }
  }

  void dropLast() {
    if (!fKept.empty()) fKept.pop_back();
  }

  void keepTail(std::size_t start) { fKept.push_back({start, fPath.size() - start}); }

  const std::string& fPath;
  const PathCharacters fCharacters;
  std::vector<Segment> fKept;
  State fState = State::SegmentStart;
  std::size_t fStart = 0;
};

}  // namespace

std::string reducePath(const std::string& path, bool keepRoot, const PathCharacters& characters) {
  if (path.empty()) throw PackageException<>(PkgLib_Err_BadArgument);
  PathReducer reducer(path, characters);
  reducer.scan();
  return reducer.join(keepRoot);
}

}  // namespace pkg
