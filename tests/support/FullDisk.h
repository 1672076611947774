#pragma once

#include <string>

namespace support {

// A shell command that runs $0 with these arguments where no file grows beyond so many blocks of
// 512 bytes: the disk that is full. A build that counts what is reached (QCF_COVERAGE) would have
// its counters cut off, too, and complain as it ends; those of this run go to a scratch folder.
inline std::string onFullDisk(int blocks, const std::string& arguments) {
  return "counters=$(mktemp -d); (trap '' XFSZ; ulimit -f " + std::to_string(blocks) +
         "; GCOV_PREFIX=$counters GCOV_ERROR_FILE=/dev/null exec \"$0\" " + arguments +
         "); status=$?; rm -r \"$counters\"; exit $status";
}

}  // namespace support
