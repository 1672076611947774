#include "Host.h"

#include <filesystem>

#include <fmt/format.h>

#include "common/ExecutablePath.h"

namespace {

// Beside the program's own folder in the build tree, in the library folder when installed.
std::filesystem::path findBundle() {
  const auto folder = tools::executablePath().parent_path();
  const char* const kName = "ImporterQSND.bundle";
  for (const auto& place : {folder / QSND_BUNDLES_FROM_BIN / kName, folder / ".." / kName}) {
    if (std::filesystem::is_directory(place)) return place;
  }
  throw tools::Failure(fmt::format("cannot find {}; name it with --bundle", kName));
}

}  // namespace

hostkit::Bundle Host::loadBundle() const {
  const std::filesystem::path path =
      bundlePath.empty() ? findBundle() : std::filesystem::path(bundlePath);
  try {
    return hostkit::Bundle(path);
  } catch (const hostkit::Error& error) {
    throw tools::Failure(fmt::format("cannot load {}: {}", tools::shown(path), error.what()));
  }
}

std::unique_ptr<hostkit::Document> openDocument(const hostkit::Bundle& bundle,
                                                const std::string& path) {
  try {
    return std::make_unique<hostkit::Document>(bundle, path);
  } catch (const hostkit::Error& error) {
    throw tools::Failure(fmt::format("cannot open {}: {}", tools::shown(path), error.what()));
  }
}

std::string sampleFormatName(std::int32_t number) {
  switch (number) {
    case 2:
      return "8-bit integer";
    case 3:
      return "16-bit integer";
    case 4:
      return "24-bit integer";
    case 6:
      return "32-bit float";
    default:
      return "unknown";
  }
}
