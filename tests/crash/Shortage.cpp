// Put before a program's libraries (LD_PRELOAD): while its main() runs, one call goes without what
// it asks for.
//
//   QCF_SHORTAGE="memory 17"    the 17th allocation, of the program and its children together,
//   gives nothing
//   QCF_SHORTAGE="zlib 3"       the same of the calls that set zlib up, pack, unpack and end
//   QCF_SHORTAGE_MARK=FILE      is made when that has happened
//   QCF_SHORTAGE_COUNTS=FILE    how many there were of both is written there when main() has
//   returned

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

namespace {

struct Counts {
  std::atomic<long> memory{0};
  std::atomic<long> zlib{0};
};

Counts* counts = nullptr;  // there while main() runs, shared with children
long memoryFault = 0;
long zlibFault = 0;
const char* mark = nullptr;

bool isAt(long fault, std::atomic<long> Counts::*count) {
  if (counts == nullptr || ++(counts->*count) != fault) return false;
  if (mark != nullptr) close(open(mark, O_WRONLY | O_CREAT, 0600));  // allocates nothing
  return true;
}

bool allocationFails() {
  return isAt(memoryFault, &Counts::memory);
}

bool zlibFails() {
  return isAt(zlibFault, &Counts::zlib);
}

template <class Function>
Function* real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void begin() {
  if (const char* const fault = std::getenv("QCF_SHORTAGE")) {
    std::sscanf(fault, "memory %ld", &memoryFault);
    std::sscanf(fault, "zlib %ld", &zlibFault);
  }
  mark = std::getenv("QCF_SHORTAGE_MARK");
  void* const shared =
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) std::abort();
  counts = new (shared) Counts;
}

void end() {
  const Counts* const seen = counts;
  counts = nullptr;
  const char* const path = std::getenv("QCF_SHORTAGE_COUNTS");
  if (path == nullptr) return;
  std::FILE* const file = std::fopen(path, "w");
  if (file == nullptr) std::abort();
  std::fprintf(file, "%ld %ld\n", seen->memory.load(), seen->zlib.load());
  std::fclose(file);
}

using Main = int (*)(int, char**, char**);
Main programsMain = nullptr;

int countedMain(int argc, char** argv, char** environment) {
  begin();
  const int status = programsMain(argc, argv, environment);
  end();
  return status;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names
#pragma GCC visibility push(default)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

int __libc_start_main(Main main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stack) {
  programsMain = main;
  return real(&__libc_start_main, "__libc_start_main")(countedMain, argc, argv, init, fini,
                                                       loaderFini, stack);
}

void* malloc(std::size_t size) {
  if (!allocationFails()) return __libc_malloc(size);
  errno = ENOMEM;
  return nullptr;
}

void* calloc(std::size_t count, std::size_t size) {
  if (!allocationFails()) return __libc_calloc(count, size);
  errno = ENOMEM;
  return nullptr;
}

// reallocarray comes here.
void* realloc(void* block, std::size_t size) {
  if (!allocationFails()) return __libc_realloc(block, size);
  errno = ENOMEM;
  return nullptr;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  if (!allocationFails()) return real(&aligned_alloc, "aligned_alloc")(alignment, size);
  errno = ENOMEM;
  return nullptr;
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  if (allocationFails()) return ENOMEM;
  return real(&posix_memalign, "posix_memalign")(block, alignment, size);
}

// A module that goes writes the counters of a build that counts what is reached (QCF_COVERAGE): the
// memory for that is none of the program's own.
int dlclose(void* module) {
  Counts* const seen = counts;
  counts = nullptr;
  const int result = real(&dlclose, "dlclose")(module);
  counts = seen;
  return result;
}

int deflateInit2_(z_streamp stream, int level, int method, int bits, int memory, int strategy,
                  const char* version, int size) {
  if (zlibFails()) return Z_MEM_ERROR;
  return real(&deflateInit2_, "deflateInit2_")(stream, level, method, bits, memory, strategy,
                                               version, size);
}

int inflateInit2_(z_streamp stream, int bits, const char* version, int size) {
  if (zlibFails()) return Z_MEM_ERROR;
  return real(&inflateInit2_, "inflateInit2_")(stream, bits, version, size);
}

int deflate(z_streamp stream, int flush) {
  return zlibFails() ? Z_STREAM_ERROR : real(&deflate, "deflate")(stream, flush);
}

int inflate(z_streamp stream, int flush) {
  return zlibFails() ? Z_MEM_ERROR : real(&inflate, "inflate")(stream, flush);
}

// They give back what they hold all the same.
int deflateEnd(z_streamp stream) {
  const bool fails = zlibFails();
  const int result = real(&deflateEnd, "deflateEnd")(stream);
  return fails ? Z_DATA_ERROR : result;
}

int inflateEnd(z_streamp stream) {
  const bool fails = zlibFails();
  const int result = real(&inflateEnd, "inflateEnd")(stream);
  return fails ? Z_STREAM_ERROR : result;
}

}  // extern "C"
#pragma GCC visibility pop
// NOLINTEND(bugprone-reserved-identifier)
