#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ziplayout {

// A file open for reading. Raises tools::Failure, which names the file.
class InputFile {
public:
  explicit InputFile(const std::string& path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  const std::string& path() const noexcept { return fPath; }
  std::uint64_t size() const noexcept { return fSize; }
  // At most `size` bytes at `offset`; fewer only where the file ends.
  std::string read(std::uint64_t offset, std::size_t size) const;

private:
  std::string fPath;
  int fDescriptor;
  std::uint64_t fSize = 0;
};

}  // namespace ziplayout
