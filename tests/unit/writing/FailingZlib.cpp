#include "unit/writing/FailingZlib.h"

#include <dlfcn.h>

// These functions stand before zlib's own.

using failingzlib::gRefusals;

namespace {

template <class Function>
Function real(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int deflateInit2_(z_streamp stream, int level, int method, int bits, int memory,
                             int strategy, const char* version, int size) {
  if (gRefusals.init != Z_OK) return gRefusals.init;
  return real<decltype(&::deflateInit2_)>("deflateInit2_")(stream, level, method, bits, memory,
                                                           strategy, version, size);
}

extern "C" int deflate(z_streamp stream, int flush) {
  if (gRefusals.deflate == Z_OK) return real<decltype(&::deflate)>("deflate")(stream, flush);
  if (gRefusals.takesAll) stream->avail_in = 0;
  return gRefusals.deflate;
}

extern "C" int deflateEnd(z_streamp stream) {
  const int result = real<decltype(&::deflateEnd)>("deflateEnd")(stream);
  return gRefusals.end != Z_OK ? gRefusals.end : result;
}
