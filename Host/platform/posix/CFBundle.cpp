#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <CoreFoundation/CoreFoundation.h>
#include <link.h>

struct __CFBundle {
  std::string folder;
};

namespace {

const std::string kModuleFolder = "/Contents/Linux/";

int collectPath(dl_phdr_info* info, std::size_t, void* paths) {
  static_cast<std::vector<std::string>*>(paths)->emplace_back(info->dlpi_name);
  return 0;
}

// The folders of all bundles whose module is loaded, in load order.
std::vector<std::string> loadedBundleFolders() {
  std::vector<std::string> paths;
  dl_iterate_phdr(collectPath, &paths);
  std::vector<std::string> folders;
  for (const std::string& path : paths) {
    const auto end = path.rfind(kModuleFolder);
    if (end != std::string::npos) folders.push_back(path.substr(0, end));
  }
  return folders;
}

// The text of a key's <string> in the property list of a bundle; empty where there is none.
std::string propertyOf(const std::string& folder, const std::string& key) {
  std::ifstream file(folder + "/Contents/Info.plist", std::ios::binary);
  const std::string plist((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const std::string open = "<string>";
  const auto keyAt = plist.find("<key>" + key + "</key>");
  if (keyAt == std::string::npos) return {};
  const auto openAt = plist.find(open, keyAt);
  if (openAt == std::string::npos) return {};
  const auto begin = openAt + open.size();
  const auto end = plist.find("</string>", begin);
  return end == std::string::npos ? std::string() : plist.substr(begin, end - begin);
}

// One object a folder, for good: callers keep what they were given.
CFBundleRef bundleOfFolder(const std::string& folder) {
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<__CFBundle>> bundles;
  const std::lock_guard<std::mutex> lock(mutex);
  auto& bundle = bundles[folder];
  if (bundle == nullptr) bundle.reset(new __CFBundle{folder});
  return bundle.get();
}

}  // namespace

// A function of C, which its callers take to raise nothing: a bundle that cannot be looked for is
// not found.
CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier) {
  try {
    for (const std::string& folder : loadedBundleFolders()) {
      if (propertyOf(folder, "CFBundleIdentifier") == identifier->text)
        return bundleOfFolder(folder);
    }
  } catch (...) {
  }
  return nullptr;
}
