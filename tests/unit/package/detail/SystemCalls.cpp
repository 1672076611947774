#include "unit/package/detail/SystemCalls.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <pwd.h>

namespace support {

SystemCalls& systemCalls() {
  static SystemCalls calls;
  return calls;
}

}  // namespace support

using support::systemCalls;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names
extern "C" {

int __real_open64(const char* path, int flags, ...);
std::FILE* __real_fdopen(int descriptor, const char* mode);
std::size_t __real_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
int __real_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** result);
std::clock_t __real_clock();

int __wrap_open64(const char* path, int flags, ...) {
  unsigned int permissions = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    permissions = va_arg(arguments, unsigned int);
    va_end(arguments);
  }
  if (systemCalls().open) return systemCalls().open(path, flags, permissions);
  return __real_open64(path, flags, permissions);
}

std::FILE* __wrap_fdopen(int descriptor, const char* mode) {
  if (systemCalls().fdopen) return static_cast<std::FILE*>(systemCalls().fdopen(descriptor, mode));
  return __real_fdopen(descriptor, mode);
}

std::size_t __wrap_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  if (systemCalls().fwrite) return systemCalls().fwrite(count);
  return __real_fwrite(data, size, count, file);
}

int __wrap_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** result) {
  if (!systemCalls().home) return __real_getpwuid_r(user, entry, buffer, size, result);
  static std::string home;
  home = systemCalls().home();
  *entry = {};
  entry->pw_dir = home.data();
  *result = home.empty() ? nullptr : entry;
  return 0;
}

std::clock_t __wrap_clock() {
  return systemCalls().clock ? systemCalls().clock() : __real_clock();
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
