#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

// Calls of the library into the C library that a test answers itself. The linker leads them here
// (see CMakeLists.txt); what is not set goes on to the system.

namespace support {

struct SystemCalls {
  // Sets errno and returns what the call returns.
  std::function<int(const char* path, int flags, unsigned int permissions)> open;
  std::function<void*(int descriptor, const char* mode)> fdopen;  // a FILE*
  std::function<std::size_t(std::size_t count)> fwrite;
  // The home directory of the user; empty: there is no such user.
  std::function<std::string()> home;
  std::function<long()> clock;
};

// The answers of this moment.
SystemCalls& systemCalls();

// Forgets every answer when it goes.
class SystemCallsGuard {
public:
  SystemCallsGuard() = default;
  ~SystemCallsGuard() { systemCalls() = {}; }
  SystemCallsGuard(const SystemCallsGuard&) = delete;
  SystemCallsGuard& operator=(const SystemCallsGuard&) = delete;
};

}  // namespace support
