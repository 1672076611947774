#include "Platform.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <map>
#include <streambuf>

#include <dlfcn.h>

namespace {

// A stream position as the bundle's C++ library lays it out: its multibyte state is 128 bytes long.
struct Position {
  char state[128];
  long long offset;
};

// The virtual functions of a stream buffer that speak of positions, as the bundle's compiler calls
// them.
using SeekOff = Position (*)(std::streambuf*, long long, std::ios::seekdir, std::ios::openmode);
using SeekPos = Position (*)(std::streambuf*, Position, std::ios::openmode);

template <class Function>
Function virtualFunction(std::streambuf* buffer, std::size_t slot) {
  return reinterpret_cast<Function>((*reinterpret_cast<void***>(buffer))[slot]);
}
constexpr std::size_t kSeekOffSlot = 4;  // after two destructors, imbue and setbuf
constexpr std::size_t kSeekPosSlot = 5;

// The three operations of an input stream on positions, done with the bundle's layout.
template <class Seek>
std::istream& seek(std::istream& stream, Seek&& move) {
  stream.clear(stream.rdstate() & ~std::ios::eofbit);
  const std::istream::sentry sentry(stream, true);
  if (sentry && move(stream.rdbuf()).offset == -1) stream.setstate(std::ios::failbit);
  return stream;
}

std::istream& seekgOffset(std::istream& stream, long long offset, std::ios::seekdir from) {
  return seek(stream, [&](std::streambuf* buffer) {
    return virtualFunction<SeekOff>(buffer, kSeekOffSlot)(buffer, offset, from, std::ios::in);
  });
}

std::istream& seekgPosition(std::istream& stream, Position position) {
  return seek(stream, [&](std::streambuf* buffer) {
    return virtualFunction<SeekPos>(buffer, kSeekPosSlot)(buffer, position, std::ios::in);
  });
}

Position tellg(std::istream& stream) {
  Position none{};
  none.offset = -1;
  const std::istream::sentry sentry(stream, true);
  if (!sentry) return none;
  std::streambuf* const buffer = stream.rdbuf();
  return virtualFunction<SeekOff>(buffer, kSeekOffSlot)(buffer, 0, std::ios::cur, std::ios::in);
}

// One thread, so no lock is ever waited for. The two systems' mutexes have different layouts.
int noLock() {
  return 0;
}

// Objective-C and Core Foundation: every object is nil, so nothing is found.
void* nil() {
  return nullptr;
}

std::int32_t addAtomically(std::int32_t amount, volatile std::int32_t* value) {
  return __atomic_add_fetch(value, amount, __ATOMIC_SEQ_CST);
}

void clearBytes(void* bytes, std::size_t count) {
  std::memset(bytes, 0, count);
}

[[noreturn]] void unexpectedCall() {
  std::abort();
}

std::uintptr_t stackGuard = 0x5AFE57AC;
char anyObject[64];  // what classes and constant strings are: addresses that nobody looks behind

template <class Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

const std::map<std::string, void*>& standIns() {
  static const std::map<std::string, void*> table = {
      {"CFBundleGetBundleWithIdentifier", address(nil)},
      {"NSSearchPathForDirectoriesInDomains", address(nil)},
      {"objc_alloc", address(nil)},
      {"objc_msgSend", address(nil)},
      {"OBJC_CLASS_$_NSAutoreleasePool", anyObject},
      {"OBJC_CLASS_$_NSFileManager", anyObject},
      {"__CFConstantStringClassReference", anyObject},
      {"OSAtomicAdd32Barrier", address(addAtomically)},
      {"__bzero", address(clearBytes)},
      {"__error", address(__errno_location)},
      {"__stack_chk_guard", &stackGuard},
      {"pthread_mutex_init", address(noLock)},
      {"pthread_mutex_lock", address(noLock)},
      {"pthread_mutex_unlock", address(noLock)},
      {"pthread_mutex_destroy", address(noLock)},
      // Its flags differ; only temporary files are opened by it, and without a folder there are
      // none.
      {"open", address(unexpectedCall)},
      // Its record differs; it is asked for behind what was written, and nothing is.
      {"fstat$INODE64", address(unexpectedCall)},
      // Names are bound before anything runs.
      {"dyld_stub_binder", address(unexpectedCall)},
      {"_ZNSt3__113basic_istreamIcNS_11char_traitsIcEEE5seekgENS_4fposI11__mbstate_tEE",
       address(seekgPosition)},
      {"_ZNSt3__113basic_istreamIcNS_11char_traitsIcEEE5seekgExNS_8ios_base7seekdirE",
       address(seekgOffset)},
      {"_ZNSt3__113basic_istreamIcNS_11char_traitsIcEEE5tellgEv", address(tellg)},
  };
  return table;
}

}  // namespace

void* resolvePlatformName(const std::string& name) {
  const auto found = standIns().find(name);
  return found != standIns().end() ? found->second : dlsym(RTLD_DEFAULT, name.c_str());
}
