#include "support/ZlibFaults.h"

#include <zlib.h>

namespace {

using support::real;
using zlibfaults::Call;
using zlibfaults::Function;

thread_local support::NthCall<Function> calls;
thread_local std::vector<Call>* noted = nullptr;

bool fails(Function call) {
  return calls.fails(call);
}

void note(const Call& call) {
  if (noted != nullptr) noted->push_back(call);
}

}  // namespace

namespace zlibfaults {

void fail(Function which, int n, Span span) noexcept {
  calls.begin(which, n, span);
}

int endFailing() noexcept {
  return calls.end();
}

void note(std::vector<Call>* into) noexcept {
  noted = into;
}

}  // namespace zlibfaults

// Found before those of the library, as a program's symbols are.
#pragma GCC visibility push(default)
extern "C" {

int deflateInit2_(z_streamp stream, int level, int method, int bits, int memory, int strategy,
                  const char* version, int size) {
  note({Function::DeflateInit, stream});
  if (fails(Function::DeflateInit)) return Z_MEM_ERROR;
  return real(&deflateInit2_, "deflateInit2_")(stream, level, method, bits, memory, strategy,
                                               version, size);
}
int deflate(z_streamp stream, int flush) {
  note({Function::Deflate, stream, flush == Z_FINISH});
  if (fails(Function::Deflate)) return Z_STREAM_ERROR;
  const bool isRefused = fails(Function::DeflateTaking);
  const int result = real(&deflate, "deflate")(stream, flush);
  return isRefused ? Z_STREAM_ERROR : result;
}
int deflateEnd(z_streamp stream) {
  note({Function::DeflateEnd, stream});
  const bool isRefused = fails(Function::DeflateEnd);
  const int result = real(&deflateEnd, "deflateEnd")(stream);
  return isRefused ? Z_STREAM_ERROR : result;
}
int inflateInit2_(z_streamp stream, int bits, const char* version, int size) {
  note({Function::InflateInit, stream});
  if (fails(Function::InflateInit)) return Z_MEM_ERROR;
  return real(&inflateInit2_, "inflateInit2_")(stream, bits, version, size);
}
int inflate(z_streamp stream, int flush) {
  note({Function::Inflate, stream});
  return fails(Function::Inflate) ? Z_MEM_ERROR : real(&inflate, "inflate")(stream, flush);
}
int inflateEnd(z_streamp stream) {
  note({Function::InflateEnd, stream});
  const bool isRefused = fails(Function::InflateEnd);
  const int result = real(&inflateEnd, "inflateEnd")(stream);
  return isRefused ? Z_STREAM_ERROR : result;
}

}  // extern "C"
#pragma GCC visibility pop
