#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "HostKit/Error.h"

namespace hostkit {

class Module;

// What an importer can read.
struct Format {
  std::string type;  // four characters
  std::uint32_t flags = 0;
  std::string name;
  std::string shortName;
  std::vector<std::string> extensions;  // without dots
};

// An importer bundle in this process: loads it and starts its plug-in, and ends both once the
// bundle and every document opened through it are gone. Calls nothing but the entry, and hands it
// nothing but records. One thread at a time.
class Bundle {
public:
  // `folder` is the bundle, <name>.bundle. Raises BundleError when it cannot be loaded or is no
  // importer.
  explicit Bundle(const std::filesystem::path& folder);

  // The formats that the importer offers, in its order.
  std::vector<Format> formats() const;

  // A selector, with parameters as the importer expects them; returns its number. For what has no
  // operation here.
  std::int32_t call(int selector, void* param1, void* param2) const;

private:
  friend class Document;
  std::shared_ptr<const Module> fModule;
};

}  // namespace hostkit
