#include "HostKit/Module.h"

#include <string>

#include <dlfcn.h>

#include "HostKit/Error.h"
#include "HostKit/Selectors.h"

namespace hostkit {
namespace {

// The library must not depend on the folder that the process is in later.
std::filesystem::path moduleOf(const std::filesystem::path& folder) {
  std::error_code error;
  const auto bundle = std::filesystem::canonical(folder, error);
  if (error) throw BundleError("the importer bundle is missing: " + error.message());
  const auto name = bundle.stem().string() + HOSTKIT_MODULE_SUFFIX;
  return bundle / "Contents" / HOSTKIT_MODULE_FOLDER / name;
}

std::string loaderError() {
  const char* const text = dlerror();
  return text != nullptr ? text : "unknown error";
}

}  // namespace

Module::Module(const std::filesystem::path& folder)
    : fLibrary(dlopen(moduleOf(folder).c_str(), RTLD_NOW | RTLD_LOCAL)), fEntry(nullptr) {
  if (fLibrary == nullptr) throw BundleError("the importer cannot be loaded: " + loaderError());
  fEntry = reinterpret_cast<Entry>(dlsym(fLibrary, "xImportEntry"));
  imImportInfoRec info{};
  if (fEntry == nullptr || call(SelectorInit, &info, nullptr) != ResultInitialised) {
    dlclose(fLibrary);
    throw BundleError("the bundle is no importer");
  }
}

Module::~Module() {
  call(SelectorShutDown, nullptr, nullptr);
  dlclose(fLibrary);
}

}  // namespace hostkit
