#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace hostkit {

// Something that the host could not do, in words for a person. result() is the importer's number,
// or 0 where the importer was not asked.
class Error : public std::runtime_error {
public:
  explicit Error(const std::string& reason, std::int32_t result = 0)
      : std::runtime_error(reason), fResult(result) {}
  std::int32_t result() const noexcept { return fResult; }

private:
  std::int32_t fResult;
};

// The same of an importer bundle that cannot be loaded, whatever the document.
class BundleError : public Error {
public:
  using Error::Error;
};

}  // namespace hostkit
