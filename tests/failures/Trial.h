#pragma once

#include <map>
#include <string>

#include "failures/Expectation.h"
#include "failures/Ways.h"
#include "support/FileSystems.h"

namespace failures {

// What a client's own file system may raise: nothing that the library knows.
struct DiskGone {};

// What comes out of an action, in words.
template <class Action>
std::string raised(Action&& action) {
  try {
    action();
  } catch (pkg::PackageIOException<>& e) {
    return "IO " + std::to_string(e.getErrorCode());
  } catch (pkg::PackageException<>& e) {
    return std::to_string(e.getErrorCode());
  } catch (const DiskGone&) {
    return "gone";
  } catch (const DocumentCutShort&) {
    return "cut short";
  }
  return "";
}

// One run of a way: its files, and what the library did.
class Trial {
public:
  Trial(const Way& way, support::Failure failure, int n, support::FailingFileSystem::Span span,
        support::FailingFileSystem::Throw thrower)
      : fWay(way), failing(recording, n, {failure}, span, thrower), client(failing, "") {
    if (!way.old.empty()) memory.put("old", way.old);
  }

  // Goes the way to its end or to the first exception.
  void go() {
    what = raised([&] {
      fWay.open(client);
      endPhase();
      fWay.change(client);
      endPhase();
      fWay.save(client);
      endPhase();
      client.streams.clear();
      client.package->close();
    });
    if (what.empty()) atEnd = memory.snapshot();
    trace.calls = recording.calls();
  }

private:
  void endPhase() { trace.phases.push_back(recording.calls().size()); }

  const Way& fWay;

public:
  support::MemoryFileSystem memory;
  support::RecordingFileSystem recording{memory, true};  // of what has not failed
  support::FailingFileSystem failing;
  Client client;
  std::string what;  // that came out
  std::map<std::string, Bytes> atEnd;
  Trace trace;
};

// Whether a way ends with a package that it has written.
inline bool saves(const Way& way) {
  return way.output != Output::None && way.output != Output::Abandoned;
}
// The file that a way writes.
inline std::string savedFile(const Way& way) {
  return way.output == Output::PackageFile ? "old" : "new";
}

}  // namespace failures
