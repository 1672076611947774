#pragma once

#include <cstdint>
#include <filesystem>

#include "HostRecords.h"

namespace hostkit {

// The loaded code of a bundle, between its first selector and its last.
class Module {
public:
  explicit Module(const std::filesystem::path& folder);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  std::int32_t call(int selector, void* param1, void* param2) const {
    return fEntry(selector, nullptr, param1, param2);
  }

private:
  using Entry = std::int32_t (*)(int selector, imStdParms* stdParms, void* param1, void* param2);

  void* fLibrary;
  Entry fEntry;
};

}  // namespace hostkit
