#include "Host.h"

#include <chrono>
#include <filesystem>

#include <fmt/format.h>

#include "HostKit/Document.h"
#include "HostKit/Isolated.h"
#include "common/ExecutablePath.h"

namespace {

// Beside the program's own folder in the build tree, in the library folder when installed.
std::filesystem::path findBundle() {
  const char* const kName = "ImporterQSND.bundle";
  std::error_code unknown;
  const auto folder = tools::executablePath(unknown).parent_path();
  if (!unknown) {
    for (const auto& place : {folder / QSND_BUNDLES_FROM_BIN / kName, folder / ".." / kName}) {
      if (std::filesystem::is_directory(place, unknown)) return place;
    }
  }
  throw BundleFailure(fmt::format("cannot find {}; name it with --bundle", kName));
}

std::filesystem::path bundleOf(const Host& host) {
  return host.bundlePath.empty() ? findBundle() : std::filesystem::path(host.bundlePath);
}

[[noreturn]] void failToLoad(const std::filesystem::path& bundle, const hostkit::Error& error) {
  throw BundleFailure(fmt::format("cannot load {}: {}", tools::shown(bundle), error.what()));
}

}  // namespace

std::vector<hostkit::Format> Host::formats() {
  const auto bundle = bundleOf(*this);
  try {
    return inProcess ? hostkit::Bundle(bundle).formats()
                     : hostkit::isolatedFormats(bundle, std::chrono::seconds(timeout));
  } catch (const hostkit::BundleError& error) {
    failToLoad(bundle, error);
  } catch (const hostkit::Error& error) {
    throw tools::Failure(
        fmt::format("cannot list the formats of {}: {}", tools::shown(bundle), error.what()));
  }
}

std::unique_ptr<hostkit::AudioSource> Host::open(const std::string& path) {
  const auto bundle = bundleOf(*this);
  try {
    if (!inProcess) {
      return std::make_unique<hostkit::IsolatedDocument>(bundle, path,
                                                         std::chrono::seconds(timeout));
    }
    if (!fBundle) fBundle.emplace(bundle);
    return std::make_unique<hostkit::Document>(*fBundle, path);
  } catch (const hostkit::BundleError& error) {
    failToLoad(bundle, error);
  }
}

void telling(const std::string& verb, const std::string& file, const std::function<void()>& work) {
  try {
    work();
  } catch (const hostkit::Error& error) {
    throw tools::Failure(fmt::format("cannot {} {}: {}", verb, tools::shown(file), error.what()));
  } catch (const std::bad_alloc&) {
    throw tools::Failure(fmt::format("cannot {} {}: not enough memory", verb, tools::shown(file)));
  }
}
