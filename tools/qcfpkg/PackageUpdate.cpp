#include "PackageUpdate.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <set>

#include <zlib.h>

#include <fmt/format.h>

#include "package/QCFPackage.h"
#include "package/expat/ExpatXMLParser.h"

#include "EntryData.h"
#include "InPlace.h"
#include "InputWriter.h"
#include "Rebuild.h"
#include "SpoolFileSystem.h"
#include "Texts.h"
#include "UpdateRules.h"
#include "WriteProgress.h"

using ziplayout::Entry;
using ziplayout::Layout;

namespace {

constexpr auto kNew = std::ios::in | std::ios::out | std::ios::trunc;
using Package = boost::shared_ptr<pkg::IPackage<>>;

// A person's words for a failure of the library.
std::string reasonOf(pkg::PackageException<>& error) {
  switch (error.getErrorCode()) {
    case pkg::PkgLib_Err_Unknown:
      return error.what();
    case pkg::PkgLib_Err_WritingFile:
      return "not everything could be written: is the disk full?";
    default:
      return fmt::format("it is damaged, or of a kind that cannot be changed (error {})",
                         static_cast<int>(error.getErrorCode()));
  }
}

// Runs `work`, whose failures come out as one line about the package.
template <class Work>
void telling(const std::string& verb, const std::string& path, const Work& work) {
  const auto tell = [&](const std::string& reason) {
    throw tools::Failure(fmt::format("cannot {} {}: {}", verb, tools::shown(path), reason));
  };
  try {
    work();
  } catch (pkg::PackageException<>& error) {
    tell(reasonOf(error));
  } catch (const std::bad_alloc&) {
    tell("out of memory");
  }
}

// Of an entry that the library makes, now.
Expected expectedText(const std::string& text) {
  Expected expected;
  expected.size = text.size();
  expected.crc = static_cast<std::uint32_t>(
      crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
  expected.modified = dosMoment(std::time(nullptr));
  return expected;
}

// Repairs what opening finds missing.
class KeepConforming final : public pkg::IPkgPolicies {
public:
  std::int32_t getPolicy(Policies policy) const override {
    return policy == PolicyConformance ? 1 : 0;
  }
};

// What a change makes of the properties document.
struct DocumentPlan {
  PropertyMap properties;  // as they are to be
  bool changes = false;
  bool isWritten() const { return changes && !properties.empty(); }
};

DocumentPlan planDocument(const Layout& old, const Change& change) {
  DocumentPlan plan;
  const auto& removed = change.removed;
  if (std::find(removed.begin(), removed.end(), kPropertiesName) != removed.end()) return plan;
  std::optional<PropertyMap> map = keepableProperties(old);
  if (!map) return plan;
  for (const std::string& name : removed)
    plan.changes = map->erase(name) != 0 || plan.changes;
  for (const PropertySetting& set : change.properties) {
    const char* const key = keyOf(set.name);
    if (key == nullptr) continue;
    (*map)[set.entry][key] = set.value;
    plan.changes = true;
  }
  plan.properties = std::move(*map);
  return plan;
}

std::set<std::string> goneNames(const Change& change, const DocumentPlan& document) {
  std::set<std::string> gone(change.removed.begin(), change.removed.end());
  for (const Input& input : change.added) {
    if (!input.isFolder()) gone.insert(input.name);
  }
  if (change.type) gone.insert("mimetype");
  if (document.changes) gone.insert(kPropertiesName);
  return gone;
}

bool needsRebuild(const Layout& old, const std::set<std::string>& gone) {
  return hasDuplicates(old) ||
         std::any_of(old.entries().begin(), old.entries().end(), [&](const Entry& entry) {
           return gone.count(entry.central.name) == 0 && copyWouldDamage(entry);
         });
}

// One change of one package, from its plan to the rename.
class Update {
public:
  Update(const Tool& tool, PackageFile& file, const Layout& old, const Change& change)
      : fFile(file),
        fOld(old),
        fChange(change),
        fDocument(planDocument(old, change)),
        fGone(goneNames(change, fDocument)),
        fNeedsRebuild(needsRebuild(old, fGone) || (change.dropsLeading && leadingBytes(old) != 0)),
        fProgress(change.added, copies() * old.file().size(), tool.quiet),
        fFiles([this](int size) { wrote(size); }),
        fSource(file.path()) {}

  void run() {
    requireChangeable(fOld, fChange);
    requireSomethingLeft();
    expectOldEntries();
    if (fChange.inPlace) return saveInPlace();
    if (fNeedsRebuild) rebuild();
    fChange.type ? saveWithType() : save(fSource, nullptr);
    restoreHeaders(fOld, fSource);
    expectDocument(fSource);
    restoreDates(fExpected, fSource);
    restoreDirectorySize(fSource);
    verify(fSource);
    fFile.commit();
  }

private:
  void requireSomethingLeft() const;
  void expectOldEntries();
  std::uint64_t copies() const;
  void rebuild();
  void save(const std::string& source, const pkg::IPkgPolicies* policies);
  void saveWithType();
  void saveInPlace();
  void changeInPlace();
  void wrote(int size);
  void expectDocument(const std::string& path);
  void verify(const std::string& path);
  void removeOld(const Package& package);
  void setZipProperties(const Package& package);
  void setGenericProperties(const Package& package);
  void verifyProperties(const Layout& written) const;

  PackageFile& fFile;
  const Layout& fOld;
  const Change& fChange;
  const DocumentPlan fDocument;
  const std::set<std::string> fGone;  // what is not copied
  const bool fNeedsRebuild;
  WriteProgress fProgress;
  std::optional<HeldSignals> fSignals;  // while the file is no package
  SpoolFileSystem fFiles;
  std::string fSource;  // the file that holds the package as far as it has come
  Expectation fExpected;
};

void Update::requireSomethingLeft() const {
  const auto& entries = fOld.entries();
  const bool isLeft = fChange.type || !fChange.added.empty() || fDocument.isWritten() ||
                      std::any_of(entries.begin(), entries.end(), [this](const Entry& entry) {
                        return fGone.count(entry.central.name) == 0;
                      });
  if (isLeft) return;
  throw tools::Failure(
      fmt::format("cannot change {}: nothing would be left, and a package has at least one entry",
                  tools::shown(fFile.name())));
}

void Update::expectOldEntries() {
  for (const Entry& entry : fOld.entries()) {
    const ziplayout::Header& header = entry.central;
    if (fGone.count(header.name) != 0) continue;
    Expected expected;
    expected.size = header.size;
    expected.crc = header.crc;
    if (header.size != 0) expected.compressedSize = header.compressedSize;
    fExpected[header.name] = expected;
  }
}

// How often the old package is written on the way to the new one.
std::uint64_t Update::copies() const {
  if (fChange.inPlace) return 0;
  const std::uint64_t saves = fChange.type && fOld.find("mimetype") != nullptr ? 2 : 1;
  return saves + (fNeedsRebuild ? 1 : 0);
}

void Update::rebuild() {
  for (const Entry& entry : fOld.entries()) {
    const bool isCopied = fGone.count(entry.central.name) == 0;
    if (isCopied && copyWouldDamage(entry)) requireRewritable(fOld, entry);
  }
  const std::string scratch = fFile.newScratch();
  writePlainly(fOld, scratch, [this](int size) { wrote(size); });
  fSource = scratch;
}

void Update::removeOld(const Package& package) {
  if (fGone.empty()) return;
  boost::shared_ptr<pkg::IPkgEntryIteratorImpl<>> walk;
  std::vector<pkg::SPRefType<pkg::IPkgEntry<>>> gone;  // a removal ends the walk
  for (package->initIterator(walk, {}, {}); walk->isValid(); walk->increment()) {
    auto entry = walk->dereference();
    if (fGone.count(entry->getName()) != 0) gone.push_back(entry);
  }
  walk.reset();
  for (const auto& entry : gone)
    entry->remove();
}

void Update::setZipProperties(const Package& package) {
  for (const PropertySetting& set : fChange.properties) {
    if (keyOf(set.name) == nullptr) {
      package->getFile(set.entry, true)->setProperty(set.name, set.value);
    }
  }
}

// The old document is out of the package by now, so that the library writes what it is told here
// and nothing else. It writes values as they stand: what has a meaning in XML is handed over
// escaped.
void Update::setGenericProperties(const Package& package) {
  if (!fDocument.isWritten()) return;
  for (const auto& [path, ofPath] : fDocument.properties) {
    for (const auto name :
         {pkg::QCFPropertyDateTime, pkg::QCFPropertyMacType, pkg::QCFPropertyMacCreator}) {
      const auto found = ofPath.find(keyOf(name));
      if (found == ofPath.end()) continue;
      package->getFile(path, false)->setProperty(name, escaped(found->second));
    }
  }
}

void Update::save(const std::string& source, const pkg::IPkgPolicies* policies) {
  const std::string scratch = fFile.newScratch();
  pkg::ExpatXMLParser parser;
  pkg::QCFPackageFactory factory;
  // Without a parser, a document that nobody changes is copied like any entry.
  const Package package = factory.openPackage(source, std::ios::in, &fFiles, policies,
                                              fDocument.isWritten() ? &parser : nullptr);
  if (policies == nullptr) removeOld(package);
  setZipProperties(package);
  if (fChange.comment) package->setProperty(pkg::QCFPropertyPackageComment, *fChange.comment);
  if (policies != nullptr) package->setMIMEType(*fChange.type);
  package->beginUpdate(scratch, kNew);
  for (const Input& input : fChange.added) {
    writeInput(*package, input, fChange.stored, fExpected, fProgress);
  }
  setGenericProperties(package);
  package->endUpdate();
  package->close();
  fSource = scratch;
}

// The type's entry must come first, and only a package that has none gets it there: so it is first
// taken out, then put in.
void Update::saveWithType() {
  const bool hasOthers = fOld.entries().size() > fGone.size() || fOld.find("mimetype") == nullptr;
  if (!hasOthers) {
    const std::string scratch = fFile.newScratch();
    pkg::QCFPackageFactory factory;
    const Package package =
        factory.createConformingPackage(scratch, *fChange.type, true, &fFiles, nullptr, nullptr);
    if (!fOld.end().comment.empty()) {
      package->setProperty(pkg::QCFPropertyPackageComment, fOld.end().comment);
    }
    package->endUpdate();
    package->close();
    fSource = scratch;
  } else {
    const KeepConforming conforming;
    if (fOld.find("mimetype") != nullptr) save(fSource, nullptr);
    save(fSource, &conforming);
  }
  fExpected["mimetype"] = expectedText(*fChange.type);
}

void Update::wrote(int size) {
  fProgress.wrote(size);
  if (fSignals && fSignals->isOneWaiting()) {
    throw tools::Failure(
        fmt::format("cannot change {}: it was interrupted", tools::shown(fFile.name())));
  }
}

void Update::saveInPlace() {
  if (fDocument.isWritten()) {
    throw tools::Failure(fmt::format(
        "cannot change {}: the properties of what is removed cannot go in place; without "
        "--in-place they can",
        tools::shown(fFile.name())));
  }
  const KeptDirectory kept(fSource, fOld.directoryOffset());
  try {
    changeInPlace();
  } catch (...) {
    if (kept.putBack()) throw;
    if (fSignals) fSignals->keepOut();  // somebody has to be told
    throw tools::Failure(
        fmt::format("cannot change {}, nor put back what it was ({}): it has lost its directory",
                    tools::shown(fFile.name()), tools::systemReason()));
  }
}

void Update::changeInPlace() {
  pkg::QCFPackageFactory factory;
  const Package package =
      factory.openPackage(fSource, std::ios::in | std::ios::out, &fFiles, nullptr, nullptr);
  removeOld(package);
  if (fChange.comment) package->setProperty(pkg::QCFPropertyPackageComment, *fChange.comment);
  for (const Input& input : fChange.added) {
    writeInput(*package, input, fChange.stored, fExpected, fProgress);
  }
  fSignals.emplace();
  package->doUNSAFEUpdateInPlace();
  package->close();
  restoreDates(fExpected, fSource);
  restoreDirectorySize(fSource);
  fFile.syncInPlace();
  verify(fSource);
}

// The library composes the properties document: only what can be read from it counts, and its date.
void Update::expectDocument(const std::string& path) {
  if (!fDocument.isWritten()) return;
  const Layout written(path);
  const Entry* const document = written.find(kPropertiesName);
  if (document == nullptr) return;
  fExpected[kPropertiesName] = {
      document->central.size, document->central.crc, {}, dosMoment(std::time(nullptr))};
}

void Update::verify(const std::string& path) {
  if (fDocument.isWritten()) verifyProperties(Layout(path));
  verifyPackage(path, fFile.name(), fExpected, fChange.comment.value_or(fOld.end().comment));
}

void Update::verifyProperties(const Layout& written) const {
  const auto withoutEmpty = [](PropertyMap map) {
    for (auto ofPath = map.begin(); ofPath != map.end();) {
      auto& values = ofPath->second;
      for (auto value = values.begin(); value != values.end();) {
        value = value->second.empty() ? values.erase(value) : std::next(value);
      }
      ofPath = values.empty() ? map.erase(ofPath) : std::next(ofPath);
    }
    return map;
  };
  const Entry* const document = written.find(kPropertiesName);
  const PropertiesText text =
      document == nullptr ? PropertiesText()
                          : readProperties(readEntry(written, *document, std::uint64_t{1} << 26));
  if (!text.fault.empty() || withoutEmpty(text.properties) != withoutEmpty(fDocument.properties)) {
    throw tools::Failure(fmt::format("cannot write {}: its properties cannot be kept as they are",
                                     tools::shown(fFile.name())));
  }
}

}  // namespace

void createPackage(const Tool& tool, PackageFile& file, const std::string& type,
                   const std::vector<Input>& inputs, bool stored) {
  const std::string scratch = file.newScratch();
  WriteProgress progress(inputs, 0, tool.quiet);
  SpoolFileSystem files([&](int size) { progress.wrote(size); });
  Expectation expected;
  telling("create", file.name(), [&] {
    pkg::QCFPackageFactory factory;
    const Package package =
        factory.createConformingPackage(scratch, type, true, &files, nullptr, nullptr);
    for (const Input& input : inputs)
      writeInput(*package, input, stored, expected, progress);
    package->endUpdate();
    package->close();
  });
  expected["mimetype"] = expectedText(type);
  restoreDates(expected, scratch);
  restoreDirectorySize(scratch);
  verifyPackage(scratch, file.name(), expected, "");
  file.commit();
}

void changePackage(const Tool& tool, PackageFile& file, const Layout& old, const Change& change) {
  telling("change", file.name(), [&] { Update(tool, file, old, change).run(); });
}
