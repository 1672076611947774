// How peak memory grows with the size of an entry, in each kind of work on it.

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "PackageRows.h"
#include "Targets.h"
#include "Turns.h"

namespace {

using Work = std::function<void(const std::string& path, const Shape& shape)>;

void create(const std::string& path, const Shape& shape) {
  createPackage(path, shape);
}

void nothing(const std::string&, const Shape&) {}

void readIt(const std::string& path, const Shape&) {
  readPackage(path, [](const char*, std::size_t) {});
}

void seekIn(const std::string& path, const Shape& shape) {
  const auto package = openPackage(path, std::ios::in);
  const auto stream = package->getFile(shape.name(0), true)->open(std::ios::in, false);
  const std::size_t middle = shape.blocks / 2;
  stream->seekg(static_cast<std::streamoff>(middle * kContentBlock));
  require(stream->get() == static_cast<unsigned char>(*content(middle)), "a seek went elsewhere");
}

void saveIt(const std::string& path, const Shape&) {
  savePackage(path, path + ".saved");
}

struct Growth {
  const char* what;
  bool deflate;
  Work prepare;
  Work work;
};

}  // namespace

void addGrowthFacts(const support::TempDir& folder, std::size_t part) {
  const std::string path = (folder / "growth.zip").string();
  const auto peak = [=](const Growth& growth, std::size_t blocks) {
    const Shape shape{1, blocks, kContentBlock, growth.deflate};
    turns::apart([&] { growth.prepare(path, shape); });
    const long most = turns::peakOf([&] { growth.work(path, shape); });
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".saved");
    return static_cast<double>(most);
  };
  for (const Growth& growth :
       {Growth{"created stored", false, nothing, create},
        Growth{"read stored", false, create, readIt}, Growth{"saved", false, create, saveIt},
        Growth{"created deflated", true, nothing, create},
        Growth{"read deflated", true, create, readIt},
        Growth{"sought deflated", true, create, seekIn}}) {
    const std::string sizes = growth.deflate ? "25 MB" : "500 MB";
    const std::size_t blocks = (growth.deflate ? 25'000'000 : 500'000'000) / kContentBlock / part;
    turns::add(
        turns::Fact{"peak memory of " + sizes + " " + growth.what + " above that of 256 KiB, KiB",
                    [=] { return peak(growth, blocks) - peak(growth, 4); }, turns::kMostGrowth});
  }
}
