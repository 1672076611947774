#include "support/ZlibFaults.h"

#include <dlfcn.h>
#include <zlib.h>

namespace {

using zlibfaults::Function;
using zlibfaults::Span;

thread_local bool isCounting = false;
thread_local Function function = Function::DeflateInit;
thread_local Span span = Span::Once;
thread_local int failAt = 0;
thread_local int count = 0;

bool fails(Function called) {
  if (!isCounting || called != function) return false;
  ++count;
  return failAt > 0 && (count == failAt || (span == Span::FromThereOn && count > failAt));
}

template <class Signature>
Signature* real(Signature*, const char* name) {
  return reinterpret_cast<Signature*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace zlibfaults {

void fail(Function which, int n, Span howLong) noexcept {
  function = which;
  span = howLong;
  failAt = n;
  count = 0;
  isCounting = true;
}

int endFailing() noexcept {
  isCounting = false;
  return count;
}

}  // namespace zlibfaults

// Found before those of the library, as a program's symbols are.
#pragma GCC visibility push(default)
extern "C" {

int deflateInit2_(z_streamp stream, int level, int method, int bits, int memory, int strategy,
                  const char* version, int size) {
  if (fails(Function::DeflateInit)) return Z_MEM_ERROR;
  return real(&deflateInit2_, "deflateInit2_")(stream, level, method, bits, memory, strategy,
                                               version, size);
}
int deflate(z_streamp stream, int flush) {
  if (fails(Function::Deflate)) return Z_STREAM_ERROR;
  const bool isRefused = fails(Function::DeflateTaking);
  const int result = real(&deflate, "deflate")(stream, flush);
  return isRefused ? Z_STREAM_ERROR : result;
}
int deflateEnd(z_streamp stream) {
  const bool isRefused = fails(Function::DeflateEnd);
  const int result = real(&deflateEnd, "deflateEnd")(stream);
  return isRefused ? Z_STREAM_ERROR : result;
}
int inflateInit2_(z_streamp stream, int bits, const char* version, int size) {
  if (fails(Function::InflateInit)) return Z_MEM_ERROR;
  return real(&inflateInit2_, "inflateInit2_")(stream, bits, version, size);
}
int inflate(z_streamp stream, int flush) {
  return fails(Function::Inflate) ? Z_MEM_ERROR : real(&inflate, "inflate")(stream, flush);
}
int inflateEnd(z_streamp stream) {
  const bool isRefused = fails(Function::InflateEnd);
  const int result = real(&inflateEnd, "inflateEnd")(stream);
  return isRefused ? Z_STREAM_ERROR : result;
}

}  // extern "C"
#pragma GCC visibility pop
