#include "FailingCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

namespace {

using failingcalls::Call;
using support::real;

thread_local support::NthCall<Call> calls;

// Streams that a call of this file's has failed on; few, and gone with their fclose.
thread_local std::FILE* broken[16] = {};

bool fails(Call call) {
  return calls.fails(call);
}

void mend(std::FILE* stream) {
  std::replace(std::begin(broken), std::end(broken), stream, static_cast<std::FILE*>(nullptr));
}
void breakDown(std::FILE* stream) {
  mend(stream);
  *std::find(std::begin(broken), std::end(broken) - 1, nullptr) = stream;
}

template <class Result>
Result refused(int error, Result result) {
  errno = error;
  return result;
}

}  // namespace

namespace failingcalls {

void fail(Call call, int n, Span span) noexcept {
  calls.begin(call, n, span);
}

int endFailing() noexcept {
  return calls.end();
}

}  // namespace failingcalls

#pragma GCC visibility push(default)
extern "C" {

std::FILE* fopen64(const char* path, const char* mode) {
  if (fails(Call::Open)) return refused<std::FILE*>(EACCES, nullptr);
  return real(&fopen64, "fopen64")(path, mode);
}
int open64(const char* path, int flags, ...) {
  std::va_list more;
  va_start(more, flags);
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : mode_t{0};
  va_end(more);
  if ((flags & O_EXCL) != 0 && fails(Call::Temporary)) return refused(ENOSPC, -1);
  return real(&open64, "open64")(path, flags, mode);
}
std::FILE* fdopen(int descriptor, const char* mode) noexcept {
  if (fails(Call::Temporary)) return refused<std::FILE*>(ENOMEM, nullptr);
  return real(&fdopen, "fdopen")(descriptor, mode);
}
std::size_t fread(void* buffer, std::size_t size, std::size_t number, std::FILE* stream) {
  if (fails(Call::Read)) {
    breakDown(stream);
    return refused<std::size_t>(EIO, 0);
  }
  if (fails(Call::ShortRead)) number /= 2;
  return real(&fread, "fread")(buffer, size, number, stream);
}
std::size_t fwrite(const void* buffer, std::size_t size, std::size_t number, std::FILE* stream) {
  if (fails(Call::Write)) {
    breakDown(stream);
    return refused<std::size_t>(ENOSPC, 0);
  }
  return real(&fwrite, "fwrite")(buffer, size, number, stream);
}
int ferror(std::FILE* stream) noexcept {
  if (std::find(std::begin(broken), std::end(broken), stream) != std::end(broken)) return 1;
  return real(&ferror, "ferror")(stream);
}
int fseeko64(std::FILE* stream, off64_t offset, int whence) {
  if (fails(Call::Seek)) return refused(EIO, -1);
  return real(&fseeko64, "fseeko64")(stream, offset, whence);
}
off64_t ftello64(std::FILE* stream) {
  if (fails(Call::Tell)) return refused<off64_t>(EIO, -1);
  return real(&ftello64, "ftello64")(stream);
}
int fflush(std::FILE* stream) {
  if (fails(Call::Flush)) return refused(ENOSPC, EOF);
  return real(&fflush, "fflush")(stream);
}
int fclose(std::FILE* stream) {
  const bool isRefused = fails(Call::Close);
  mend(stream);
  const int result = real(&fclose, "fclose")(stream);
  return isRefused ? refused(EIO, EOF) : result;
}
int remove(const char* path) noexcept {
  if (fails(Call::Remove)) return refused(EACCES, -1);
  return real(&remove, "remove")(path);
}
int stat64(const char* path, struct stat64* status) noexcept {
  if (fails(Call::Status)) return refused(EACCES, -1);
  return real(&stat64, "stat64")(path, status);
}
int mkdir(const char* path, mode_t mode) noexcept {
  if (fails(Call::MakeFolder)) return refused(EACCES, -1);
  return real(&mkdir, "mkdir")(path, mode);
}
int getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** found) {
  *found = nullptr;
  if (fails(Call::User)) return ENOENT;
  return real(&getpwuid_r, "getpwuid_r")(user, entry, buffer, size, found);
}

}  // extern "C"
#pragma GCC visibility pop
