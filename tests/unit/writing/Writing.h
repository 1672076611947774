#pragma once

#include <cstdint>
#include <istream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "golden/Golden.h"

// What the tests of the writing side share.
namespace writing {

using namespace golden;
using pkg::CompressionDeflated;
using pkg::CompressionStored;
using File = pkg::SPRefType<pkg::IPkgFile<>>;
using Directory = pkg::SPRefType<pkg::IPkgDirectory<>>;

// What an action raises: "22" for a PackageException, "IO 50" for a PackageIOException, "" for
// neither.
template <class Action>
std::string raised(Action&& action) {
  try {
    action();
  } catch (pkg::PackageIOException<>& e) {
    return "IO " + std::to_string(e.getErrorCode());
  } catch (pkg::PackageException<>& e) {
    return std::to_string(e.getErrorCode());
  }
  return "";
}

#define EXPECT_RAISED(what, ...) \
  EXPECT_EQ(what, writing::raised([&] { __VA_ARGS__; })) << #__VA_ARGS__

inline std::string readAll(std::istream& in) {
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline std::string contents(const Package& package, const std::string& name) {
  return readAll(*package->getFile(name, true)->open(kIn, false));
}

// A stream to write to, whose failures are exceptions.
inline Stream openForWriting(const Package& package, const std::string& name,
                             pkg::CompressionMethod method = CompressionStored, bool raw = false) {
  const File file = package->getFile(name, false);
  file->setCompressionMethod(method);
  Stream stream = file->open(kOut, raw);
  stream->exceptions(std::ios_base::badbit);
  return stream;
}

inline pkg::zip::ZipPackage<pkg::AppContext>* zipPackage(const Package& package) {
  return dynamic_cast<pkg::zip::ZipPackage<pkg::AppContext>*>(package.get());
}

// The 2- and 4-byte numbers of a file.
inline std::uint32_t u16At(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes.at(at)) |
         static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes.at(at + 1))) << 8;
}
inline std::uint32_t u32At(const Bytes& bytes, std::size_t at) {
  return u16At(bytes, at) | u16At(bytes, at + 2) << 16;
}

using Writing = Golden;

}  // namespace writing
