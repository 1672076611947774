#include "failures/ZlibExpectation.h"

#include <set>

namespace failures {

namespace {

using zlibfaults::Call;
using zlibfaults::Function;

bool isOf(const Call& call, Function function) {
  const bool deflates = function == Function::Deflate || function == Function::DeflateTaking;
  return call.function == (deflates ? Function::Deflate : function);
}

bool isInit(const Call& call) {
  return call.function == Function::DeflateInit || call.function == Function::InflateInit;
}
bool isEnd(const Call& call) {
  return call.function == Function::DeflateEnd || call.function == Function::InflateEnd;
}

// The neighbours among the calls of one stream.
const Call& nextOf(const ZlibTrace& trace, std::size_t index) {
  std::size_t at = index + 1;
  while (trace.at(at).stream != trace[index].stream)
    ++at;
  return trace[at];
}
const Call& previousOf(const ZlibTrace& trace, std::size_t index) {
  std::size_t at = index - 1;
  while (trace.at(at).stream != trace[index].stream)
    --at;
  return trace[at];
}

// An entry of an update that was given up has no end to be written.
bool isGivenUp(const Call& before, const Call& after) {
  return before.function == Function::Deflate && !before.finishes &&
         after.function == Function::DeflateEnd;
}

ZlibEffect ofDeflate(const ZlibTrace& trace, std::size_t index) {
  const Call& call = trace[index];
  if (!call.finishes) return ZlibEffect::NotWritten;
  return previousOf(trace, index).finishes ? ZlibEffect::Cut : ZlibEffect::NotClosed;
}

// What failed is remembered, and told by the next call that would need it.
ZlibEffect ofDeflateTaking(const ZlibTrace& trace, std::size_t index) {
  const Call& call = trace[index];
  const Call& next = nextOf(trace, index);
  if (isGivenUp(call, next)) return ZlibEffect::Harmless;
  if (call.finishes) return next.finishes ? ZlibEffect::Cut : ZlibEffect::Harmless;
  return next.finishes ? ZlibEffect::NotClosed : ZlibEffect::NotWritten;
}

ZlibEffect ofDeflateEnd(const ZlibTrace& trace, std::size_t index) {
  return isGivenUp(previousOf(trace, index), trace[index]) ? ZlibEffect::Harmless
                                                           : ZlibEffect::NotClosed;
}

enum class Reader { Client, Parser, Type, Copy };

// A copy reads while the stream that needs it is open.
Reader readerOf(const Way& way, const ZlibTrace& trace, std::size_t index) {
  std::size_t begin = index;
  while (!isInit(trace.at(begin)) || trace[begin].stream != trace[index].stream)
    --begin;
  int open = 0;
  for (std::size_t i = 0; i < begin; ++i)
    open += isInit(trace[i]) ? 1 : isEnd(trace[i]) ? -1 : 0;
  if (open > 0) return Reader::Copy;
  const std::string name = way.name;
  if (name == "RepairAtOpenAndSaveAs") return Reader::Type;
  return name == "PropertiesReadAndWritten" ? Reader::Parser : Reader::Client;
}

ZlibEffect ofInflate(Reader reader) {
  if (reader == Reader::Client) return ZlibEffect::NotRead;
  return reader == Reader::Parser ? ZlibEffect::Parser : ZlibEffect::Cut;
}

}  // namespace

ZlibEffect zlibEffect(const Way& way, const ZlibTrace& trace, std::size_t index,
                      Function function) {
  switch (function) {
    case Function::DeflateInit:
      return ZlibEffect::NoDeflating;
    case Function::Deflate:
      return ofDeflate(trace, index);
    case Function::DeflateTaking:
      return ofDeflateTaking(trace, index);
    case Function::DeflateEnd:
      return ofDeflateEnd(trace, index);
    case Function::InflateInit:
      return ZlibEffect::NotRead;
    case Function::Inflate:
      return ofInflate(readerOf(way, trace, index));
    case Function::InflateEnd:
      break;
  }
  return readerOf(way, trace, index) == Reader::Client ? ZlibEffect::NotClosed
                                                       : ZlibEffect::Harmless;
}

std::size_t callOf(const ZlibTrace& trace, Function function, int n) {
  std::size_t at = 0;
  for (; at < trace.size(); ++at) {
    if (isOf(trace[at], function) && --n == 0) break;
  }
  return at;
}

ZlibEffect zlibEffectFromThereOn(const Way& way, const ZlibTrace& trace, std::size_t index,
                                 Function function) {
  const ZlibEffect first = zlibEffect(way, trace, index, function);
  std::set<const void*> failed;  // and asked no more
  for (std::size_t at = index; at < trace.size(); ++at) {
    if (isInit(trace[at])) failed.erase(trace[at].stream);
    if (!isOf(trace[at], function) || failed.count(trace[at].stream) != 0) continue;
    const ZlibEffect effect = zlibEffect(way, trace, at, function);
    if (!isSilent(effect)) return effect;
    failed.insert(trace[at].stream);
  }
  return first;
}

}  // namespace failures
