#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>

#include "ZipLayout.h"

namespace ziplayout {

// Why an entry's data cannot be had. The identifier is that of the finding.
class DataError : public std::runtime_error {
public:
  DataError(std::string id, const std::string& text)
      : std::runtime_error(text), fId(std::move(id)) {}
  const std::string& id() const noexcept { return fId; }

private:
  std::string fId;
};

// Receives data piece by piece.
using Sink = std::function<void(const char* data, std::size_t size)>;

// Delivers the whole content of an entry, then compares size and CRC. Raises DataError for what is
// wrong with the data, as soon as it shows: what was delivered by then is not to be trusted. Never
// delivers more than the recorded size. Memory is constant.
void readEntry(const Layout& layout, const Entry& entry, const Sink& sink);

// The same as a text; raises DataError "data-size" above `limit`.
std::string readEntry(const Layout& layout, const Entry& entry, std::uint64_t limit);

// The bytes of an entry as they are stored.
void readStored(const Layout& layout, const Entry& entry, const Sink& sink);

}  // namespace ziplayout
