#include <dlfcn.h>

#include <gtest/gtest.h>

#include "unit/reading/Reading.h"

using namespace reading;

namespace {

bool initFails = false;
bool endFails = false;

template <class Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::string deflatedPackage() {
  zipbytes::File file;
  return addDeflated(file, "a", "0123456789").bytes();
}

class ZlibFailures : public testing::Test {
protected:
  void TearDown() override { initFails = endFails = false; }
};

}  // namespace

// Found before those of the library, as a program's symbols are.
extern "C" __attribute__((visibility("default"))) int inflateInit2_(z_streamp stream, int bits,
                                                                    const char* version, int size) {
  if (initFails) return Z_VERSION_ERROR;
  return real<decltype(inflateInit2_)>("inflateInit2_")(stream, bits, version, size);
}
extern "C" __attribute__((visibility("default"))) int inflateEnd(z_streamp stream) {
  const int result = real<decltype(inflateEnd)>("inflateEnd")(stream);
  return endFails ? Z_STREAM_ERROR : result;
}

TEST_F(ZlibFailures, AStreamThatCannotStartToInflateRaises31AndDoesNotExist) {
  const MemoryPackage package(deflatedPackage());
  initFails = true;
  const Raised raised = raisedBy([&] { package.stream("a"); });
  EXPECT_EQ(31, raised.code);
  EXPECT_FALSE(raised.isIO);
  initFails = false;
  EXPECT_EQ("0123456789", contents(package, "a"));
}

TEST_F(ZlibFailures, AStoredOrRawStreamNeedsNoInflate) {
  initFails = true;
  EXPECT_EQ("x", contents(MemoryPackage(packageOf({"a"})), "a"));
  EXPECT_EQ(deflated("0123456789"), readAll(*MemoryPackage(deflatedPackage()).stream("a", true)));
}

TEST_F(ZlibFailures, AnEndThatFailsRaises30FromCloseAndTheStreamIsClosedRegardless) {
  const MemoryPackage package(deflatedPackage());
  const Stream stream = package.stream("a");
  stream->get();
  endFails = true;
  const Raised raised = raisedBy([&] { stream->close(); });
  EXPECT_EQ(30, raised.code);
  EXPECT_FALSE(raised.isIO);
  EXPECT_EQ("PKGLIB SAMPLE ERROR MESSAGE: Error Closing Package File", raised.text);
  EXPECT_FALSE(stream->good());
  EXPECT_NO_THROW(stream->close());
  package.files.forget();
  stream->get();
  EXPECT_TRUE(package.files.calls().empty());
  EXPECT_NO_THROW(package->close());  // the entry no longer lists it
}

TEST_F(ZlibFailures, AnEndThatFailsRaisesNothingFromTheDestructor) {
  const MemoryPackage package(deflatedPackage());
  Stream stream = package.stream("a");
  stream->get();
  endFails = true;
  EXPECT_NO_THROW(stream.reset());
  endFails = false;
  EXPECT_EQ("0123456789", contents(package, "a"));
}
