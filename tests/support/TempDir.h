#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace support {

// The bytes of a file. Raises std::runtime_error when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Makes or replaces a file. Raises std::runtime_error when it cannot be written.
inline void writeFile(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

// A new, empty folder, gone with everything in it when this object goes.
class TempDir {
public:
  TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "qcftest-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    fPath = name;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return fPath; }
  // A path in the folder; touches nothing.
  std::filesystem::path operator/(const std::filesystem::path& name) const { return fPath / name; }
  // Makes or replaces a file in the folder; returns its path as the library takes it.
  std::string write(const std::string& name, std::string_view bytes) const {
    writeFile(fPath / name, bytes);
    return (fPath / name).string();
  }
  std::string read(const std::string& name) const { return readFile(fPath / name); }

private:
  std::filesystem::path fPath;
};

}  // namespace support
