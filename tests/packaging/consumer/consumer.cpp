// A small client, built with hidden visibility as many are: what it catches and implements has to
// match the library's types across the boundary of the shared object all the same.

#include <cstdio>
#include <ios>
#include <iterator>
#include <string>

#include "package/QCFPackage.h"

namespace {

class NoPolicies : public pkg::IPkgPolicies {
public:
  std::int32_t getPolicy(Policies) const override {
    ++asked;
    return 0;
  }
  mutable int asked = 0;
};

std::string readEntry(const std::string& path, const std::string& entry,
                      const pkg::IPkgPolicies* policies) {
  pkg::QCFPackageFactory factory;
  const auto package = factory.openPackage(path, std::ios::in, nullptr, policies, nullptr);
  const auto stream = package->getFile(entry, true)->open(std::ios::in, false);
  return {std::istreambuf_iterator<char>(*stream), {}};
}

// The number of the error that reading raises; 0 when nothing is raised.
int errorOf(const std::string& path, const std::string& entry) {
  try {
    readEntry(path, entry, nullptr);
    return pkg::PkgLib_Err_None;
  } catch (pkg::PackageIOException<>& e) {
    return 1000 + e.getErrorCode();
  } catch (pkg::PackageException<>& e) {
    return e.getErrorCode();
  }
}

}  // namespace

// Prints the version, an entry, and how the library refuses a package and an entry that are not
// there.
int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const NoPolicies policies;
  std::printf("%s\n", pkg::QCFVersion::GetQCFVersion());
  std::printf("%s\n", readEntry(argv[1], argv[2], &policies).c_str());
  std::printf("asked: %s\n", policies.asked > 0 ? "yes" : "no");
  std::printf("no entry: %d\n", errorOf(argv[1], "no such entry"));
  std::printf("no package: %d\n", errorOf(std::string(argv[1]) + ".none", argv[2]));
}
