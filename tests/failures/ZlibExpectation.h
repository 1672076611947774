#pragma once

#include <string>
#include <vector>

#include "failures/Ways.h"
#include "support/ZlibFaults.h"

// What a failing call of zlib must lead to, told from the calls of the run in which none fails.
namespace failures {

using ZlibTrace = std::vector<zlibfaults::Call>;

enum class ZlibEffect {
  NoDeflating,  // 32 comes out
  NotWritten,   // who writes is told: 27 a client and the properties document, 29 a copy
  NotClosed,    // 30
  NotRead,      // 31
  Parser,       // the client's parser saw its stream fail
  Cut,          // nothing comes out, and what was read or written ends early
  Harmless      // nothing comes out, and nothing is amiss
};

// Of the call at `index` of the trace, a call of `function` that fails.
//
// Nothing comes out, and nowhere else:
//  - of a deflate that is to write the end of an entry, unless it is the first of those and has
//    done nothing: deflateEnd does not find the state of an entry that lacks its end then;
//  - of an inflate that reads what is copied, by a save or into the temporary copy that seeking
//    needs, or the type of a package: the reader asks an istream for its end, and for no more;
//  - of the end of a stream that is let go without close(), and of what only that can tell.
ZlibEffect zlibEffect(const Way& way, const ZlibTrace& trace, std::size_t index,
                      zlibfaults::Function function);

// The n-th call of a function, from 1; the length of the trace where there are less.
std::size_t callOf(const ZlibTrace& trace, zlibfaults::Function function, int n);

// With all that follow failing, too: of the first of them of which anything comes out.
ZlibEffect zlibEffectFromThereOn(const Way& way, const ZlibTrace& trace, std::size_t index,
                                 zlibfaults::Function function);

inline bool isSilent(ZlibEffect effect) {
  return effect == ZlibEffect::Cut || effect == ZlibEffect::Harmless;
}

}  // namespace failures
