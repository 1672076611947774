#pragma once

#include <dlfcn.h>

namespace support {

enum class Span { Once, FromThereOn };

// Counts the calls of one kind, from 1, and says which of them is to fail: the n-th, or with all
// that follow it. With 0 none is.
template <class Kind>
class NthCall {
public:
  void begin(Kind kind, int n, Span span) noexcept {
    *this = NthCall{};
    fIsCounting = true;
    fKind = kind;
    fFailAt = n;
    fSpan = span;
  }
  // Returns how many calls there were.
  int end() noexcept {
    fIsCounting = false;
    return fCount;
  }
  bool fails(Kind called) noexcept {
    if (!fIsCounting || called != fKind) return false;
    ++fCount;
    return fFailAt > 0 && (fCount == fFailAt || (fSpan == Span::FromThereOn && fCount > fFailAt));
  }

private:
  bool fIsCounting = false;
  Kind fKind{};
  Span fSpan = Span::Once;
  int fFailAt = 0;
  int fCount = 0;
};

// The function of this name behind the program's own.
template <class Function>
Function* real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace support
