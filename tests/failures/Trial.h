#pragma once

#include <map>
#include <string>

#include "failures/Expectation.h"
#include "failures/Ways.h"
#include "support/FileSystems.h"

namespace failures {

// What a client's own file system may raise: nothing that the library knows.
struct DiskGone {};

// Turns the failures of the file system below into others.
class TranslatingFileSystem : public support::FileSystemWrapper {
public:
  using Throw = void (*)();

  TranslatingFileSystem(pkg::IPkgFileSystem<>& inner, Throw thrower)
      : FileSystemWrapper(inner), fThrow(thrower) {}

  File openFile(const FileName& name, openmode mode) override {
    return translated([&] { return FileSystemWrapper::openFile(name, mode); });
  }
  File createTempFile() override {
    return translated([&] { return FileSystemWrapper::createTempFile(); });
  }
  File reopenTempFileByName(const FileName& name, openmode mode) override {
    return translated([&] { return FileSystemWrapper::reopenTempFileByName(name, mode); });
  }

protected:
  void close(InnerFile& file) override {
    translated([&] { file.close(); });
  }
  int read(InnerFile& file, void* buffer, int size) override {
    return translated([&] { return file.read(buffer, size); });
  }
  void write(InnerFile& file, const void* buffer, int size) override {
    translated([&] { file.write(buffer, size); });
  }
  void seek(InnerFile& file, long long offset, int whence) override {
    translated([&] { file.seek(offset, whence); });
  }
  long long tell(InnerFile& file) override {
    return translated([&] { return file.tell(); });
  }
  void flush(InnerFile& file) override {
    translated([&] { file.flush(); });
  }
  void truncate(InnerFile& file, long long size) override {
    translated([&] { file.truncate(size); });
  }

private:
  template <class Operation>
  auto translated(Operation&& operation) -> decltype(operation()) {
    try {
      return operation();
    } catch (pkg::PackageIOException<>&) {
      if (fThrow != nullptr) fThrow();
      throw;
    }
  }

  Throw fThrow;
};

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
        TranslatingFileSystem::Throw thrower)
      : fWay(way),
        failing(memory, n, {failure}, span),
        translating(failing, thrower),
        recording(translating),
        client(recording, "") {
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
  support::FailingFileSystem failing;
  TranslatingFileSystem translating;
  support::RecordingFileSystem recording;
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
