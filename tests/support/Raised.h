#pragma once

#include <ostream>

#include "package/Package.h"

namespace support {

// What an operation raised, as a value that a test compares: EXPECT_EQ(raised([&] { ... }),
// misuse(24)).
struct Raised {
  int code = -1;  // -1: nothing
  bool io = false;

  friend bool operator==(const Raised& a, const Raised& b) {
    return a.code == b.code && a.io == b.io;
  }
  friend std::ostream& operator<<(std::ostream& out, const Raised& raised) {
    if (raised.code == -1) return out << "nothing";
    return out << (raised.io ? "PackageIOException " : "PackageException ") << raised.code;
  }
};

inline Raised nothing() {
  return {};
}
// PackageException itself, and its subclass.
inline Raised misuse(int code) {
  return {code, false};
}
inline Raised ioError(int code) {
  return {code, true};
}

// Runs `operation`. Exceptions that are none of the library's pass.
template <class Operation>
Raised raised(Operation&& operation) {
  try {
    operation();
  } catch (pkg::PackageIOException<>& e) {
    return ioError(e.getErrorCode());
  } catch (pkg::PackageException<>& e) {
    return misuse(e.getErrorCode());
  }
  return nothing();
}

}  // namespace support
