#pragma once

#include <string>

namespace support {

// A shell command that runs $0 with these arguments where no file grows beyond so many blocks of
// 512 bytes: the disk that is full. A build that counts what is reached (QCF_COVERAGE) would write
// its counters to such a file as it ends, and complain; they go nowhere instead.
inline std::string onFullDisk(int blocks, const std::string& arguments) {
  return "trap '' XFSZ; ulimit -f " + std::to_string(blocks) +
         "; GCOV_PREFIX=/dev/null GCOV_ERROR_FILE=/dev/null exec \"$0\" " + arguments;
}

}  // namespace support
