#include "failures/Expectation.h"

#include <cstdio>

namespace failures {

namespace {

using support::Failure;
using support::FileCall;
using Call = support::RecordingFileSystem::Call;

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string outputName(const Way& way) {
  return way.output == Output::PackageFile ? "old" : "new";
}

bool isOutput(const Way& way, const Call& call) {
  return way.output != Output::None && endsWith(call.name, outputName(way));
}

bool isTemporary(const Call& call) {
  return !endsWith(call.name, "old") && !endsWith(call.name, "new");
}

bool isSeek(const Call& call, int whence) {
  return call.kind == FileCall::Seek && call.whence == whence;
}

// The next call on the same file.
const Call* nextOf(const Trace& trace, std::size_t index) {
  for (std::size_t i = index + 1; i < trace.calls.size(); ++i) {
    if (trace.calls[i].name == trace.calls[index].name) return &trace.calls[i];
  }
  return nullptr;
}

// A read, or the seek that a read begins with.
bool belongsToRead(const Trace& trace, std::size_t index) {
  const Call& call = trace.calls[index];
  if (call.kind == FileCall::Read) return true;
  const Call* const next = nextOf(trace, index);
  return isSeek(call, SEEK_SET) && next != nullptr && next->kind == FileCall::Read;
}

// Whether a seek or write on the output happens in the loop that copies an entry: then a block has
// been read that has not been written yet. What follows the last block of an entry (the end of the
// deflated data, the patch of the header) has no such block, nor has what a client writes itself.
bool copiesABlock(const Way& way, const Trace& trace, std::size_t index) {
  bool hasRead = false;
  bool inTransfer = false;
  for (std::size_t i = trace.phases[1]; i <= index; ++i) {
    const Call& call = trace.calls[i];
    if (!isOutput(way, call)) {
      if (call.kind == FileCall::Read) hasRead = true;
    } else if (isSeek(call, SEEK_END)) {
      inTransfer = false;
    } else if (call.kind == FileCall::Write && !inTransfer) {
      inTransfer = hasRead;  // a local header goes out with the first block
    } else if (isSeek(call, SEEK_SET)) {
      inTransfer = hasRead;
      hasRead = false;
    }
  }
  const Call& call = trace.calls[index];
  return inTransfer && (call.kind == FileCall::Write || isSeek(call, SEEK_SET));
}

// The records that opening reads, in order, each with the code of a short read.
std::vector<std::string> codesOfShortReads(const Way& way) {
  std::vector<std::string> codes = {"20", "IO 10"};
  const auto addRecords = [&](std::size_t count, std::size_t rich) {
    for (std::size_t i = 0; i < count; ++i) {
      codes.insert(codes.end(), {"IO 2", "IO 4"});
      if (i == rich) codes.insert(codes.end(), {"IO 5", "IO 6"});
    }
  };
  const auto addLocalHeaders = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
      codes.insert(codes.end(), {"IO 2", "IO 4"});
  };
  const std::string name = way.name;
  if (name == "RepairAtOpenAndSaveAs") {
    addRecords(6, 0);
    addLocalHeaders(2);  // of the first entry, to see that there is one, and of the type's
    codes.insert(codes.end(), {""});  // the type
    addLocalHeaders(4);
  } else if (name == "PropertiesReadAndWritten") {
    addRecords(7, 1);
    addLocalHeaders(7);
  } else {
    codes.insert(codes.end(), {"IO 10", "IO 6"});  // the scan for the end record, and the comment
    addRecords(7, 1);
    addLocalHeaders(7);
  }
  return codes;
}

std::size_t readsSince(const Trace& trace, std::size_t begin, std::size_t end) {
  std::size_t reads = 0;
  for (std::size_t i = begin; i < end; ++i)
    reads += trace.calls[i].kind == FileCall::Read ? 1 : 0;
  return reads;
}

Expectation expectedOfOpening(const Way& way, const Trace& trace, std::size_t index,
                              Failure failure) {
  const std::vector<std::string> codes = codesOfShortReads(way);
  const std::size_t reads = readsSince(trace, 0, index);
  const bool ofType = belongsToRead(trace, index) && codes.at(reads).empty();
  if (ofType) return {Effect::Swallowed};
  if (failure == Failure::ShortRead) return {Effect::Short, codes.at(reads)};
  return {Effect::Raised};
}

// The close by the stream that fills a temporary copy: the first of that file.
bool isCloseOfFilling(const Trace& trace, std::size_t index) {
  const Call& call = trace.calls[index];
  if (call.kind != FileCall::Close || !isTemporary(call)) return false;
  for (std::size_t i = 0; i < index; ++i) {
    if (trace.calls[i].kind == FileCall::Close && trace.calls[i].name == call.name) return false;
  }
  return true;
}

Expectation expectedOfSeeking(const Trace& trace, std::size_t index) {
  const Call& call = trace.calls[index];
  if (isCloseOfFilling(trace, index)) return {Effect::Swallowed};
  // The client's own first read comes before the temporary file, the copy behind it.
  std::size_t created = 0;
  while (trace.calls[created].kind != FileCall::CreateTemp)
    ++created;
  const bool ofCopy = index > created && !isTemporary(call) && belongsToRead(trace, index);
  return {ofCopy ? Effect::Swallowed : Effect::Raised};
}

Expectation expectedOfChanging(const Way& way, const Trace& trace, std::size_t index,
                               Failure failure) {
  const std::string name = way.name;
  if (name == "WalkAllEntries" && failure == Failure::ShortRead) {
    return {Effect::Short, readsSince(trace, trace.phases[0], index) % 2 == 0 ? "IO 2" : "IO 4"};
  }
  if (failure == Failure::ShortRead) return {Effect::Swallowed};
  if (name == "SeekInADeflatedEntry") return expectedOfSeeking(trace, index);
  if (name == "PropertiesReadAndWritten" && belongsToRead(trace, index)) return {Effect::Parser};
  return {Effect::Raised};
}

Expectation expectedOfSaving(const Way& way, const Trace& trace, std::size_t index) {
  if (trace.calls[index].kind == FileCall::DeleteTemp) {
    return {way.output == Output::Abandoned ? Effect::Swallowed : Effect::Raised};
  }
  if (isOutput(way, trace.calls[index])) {
    return {copiesABlock(way, trace, index) ? Effect::Code29 : Effect::Raised};
  }
  return {belongsToRead(trace, index) ? Effect::Swallowed : Effect::Raised};
}

}  // namespace

Phase Trace::phaseOf(std::size_t call) const {
  if (call < phases[0]) return Phase::Opening;
  if (call < phases[1]) return Phase::Changing;
  return call < phases[2] ? Phase::Saving : Phase::Closing;
}

Expectation expectation(const Way& way, const Trace& trace, std::size_t index,
                        support::Failure failure) {
  index = seekOf(trace, index);
  switch (trace.phaseOf(index)) {
    case Phase::Opening:
      return way.old.empty() ? Expectation{Effect::Raised}
                             : expectedOfOpening(way, trace, index, failure);
    case Phase::Changing:
      return expectedOfChanging(way, trace, index, failure);
    case Phase::Saving:
      return expectedOfSaving(way, trace, index);
    case Phase::Closing:
      break;
  }
  return {Effect::Raised};
}

std::size_t seekOf(const Trace& trace, std::size_t index) {
  const std::size_t next = index + 1;
  const bool isBeforeSeek = trace.calls[index].kind == FileCall::Capabilities &&
                            next < trace.calls.size() && trace.calls[next].kind == FileCall::Seek;
  return isBeforeSeek ? next : index;
}

std::size_t directoryBegin(const Way& way, const Trace& trace) {
  if (way.output == Output::Abandoned) return trace.calls.size();
  std::size_t begin = kNone;
  for (std::size_t i = trace.phases[1]; i < trace.phases[2]; ++i) {
    if (isOutput(way, trace.calls[i]) && isSeek(trace.calls[i], SEEK_END)) begin = i;
  }
  return begin == kNone ? trace.calls.size() : begin;
}

std::size_t outputBegin(const Way& way, const Trace& trace) {
  for (std::size_t i = trace.phases[1]; i < trace.phases[2]; ++i) {
    if (isOutput(way, trace.calls[i]) && trace.calls[i].kind == FileCall::Open) return i + 1;
  }
  return 0;
}

}  // namespace failures
