#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include "package/QCFPackage.h"

#include "support/FileSystems.h"

namespace support {

// A new, empty package in memory, with a look behind its interface.
class TestPackage {
public:
  explicit TestPackage(pkg::IXMLParser* parser = nullptr,
                       const pkg::IPkgPolicies* policies = nullptr)
      : fPackage(pkg::QCFPackageFactory().openPackage(
            std::string("package"), std::ios::in | std::ios::out | std::ios::trunc, &fFiles,
            policies, parser)) {}

  pkg::IPackage<>* operator->() const { return fPackage.get(); }
  pkg::IPackage<>& operator*() const { return *fPackage; }
  pkg::zip::ZipPackage<>* zip() const {
    return dynamic_cast<pkg::zip::ZipPackage<>*>(fPackage.get());
  }
  pkg::PkgPropertyMgr<>& properties() const { return *zip()->getPropertyMgr(); }
  // The file system that the package lives in.
  MemoryFileSystem& files() { return fFiles; }

  // A file of its file system with these bytes, open at its start.
  boost::shared_ptr<pkg::IPkgFSFile<>> file(const std::string& bytes) {
    fFiles.put("bytes", bytes);
    return fFiles.openFile(fFiles.getFSFileName("bytes"), std::ios::in | std::ios::out);
  }

private:
  MemoryFileSystem fFiles;
  boost::shared_ptr<pkg::IPackage<>> fPackage;
};

}  // namespace support
