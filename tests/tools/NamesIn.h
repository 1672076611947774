#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

// What a folder holds itself, sorted.
inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& item : std::filesystem::directory_iterator(folder))
    names.push_back(item.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}
