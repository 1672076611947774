#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "Program.h"

// One specimen file for each kind of finding, made by plain bytes: the finding is told, where it
// is, and a package without the fault is free of it.

namespace {

using zipbytes::Bytes;
using zipbytes::Entry;
using zipbytes::File;
using zipbytes::storedEntry;

// The package that every specimen starts from.
File healthy() {
  File file;
  file.add(storedEntry("mimetype", "a/b"), "a/b");
  return file;
}

// A healthy package with one more entry, whose headers are as `local` and `central`.
Bytes with(const Entry& local, const Entry& central, const Bytes& data = "x",
           const Bytes& behind = {}) {
  File file = healthy();
  file.addAs(local, central, data, behind);
  return file.bytes();
}
Bytes with(const Entry& entry, const Bytes& data = "x", const Bytes& behind = {}) {
  return with(entry, entry, data, behind);
}
Bytes named(const Bytes& name) {
  return with(storedEntry(name, "x"));
}
template <class Change>
Bytes changed(const Change& change, const Bytes& data = "x", const Bytes& behind = {}) {
  Entry entry = storedEntry("e", data);
  change(entry);
  return with(entry, data, behind);
}
// The local header differs from the central one.
template <class Change>
Bytes differing(const Change& change) {
  Entry local = storedEntry("e", "x");
  change(local);
  return with(local, storedEntry("e", "x"));
}
Bytes typed(const Bytes& text) {
  File file;
  file.add(storedEntry("mimetype", text), text);
  return file.bytes();
}
template <class Change>
Bytes ended(const Change& change) {
  const File file = healthy();
  zipbytes::End end = file.end();
  change(end);
  return file.bytes(end);
}
Bytes properties(const Bytes& text) {
  return with(storedEntry("META-INF/pkgproperties.xml", text), text);
}
Bytes flip(Bytes bytes, std::size_t at) {
  bytes[at] = static_cast<char>(bytes[at] ^ 0x40);
  return bytes;
}

Bytes twice(const Bytes& one, const Bytes& other) {
  File file = healthy();
  file.add(storedEntry(one, "x"), "x").add(storedEntry(other, "x"), "x");
  return file.bytes();
}

std::map<std::string, Bytes> typeSpecimens() {
  std::map<std::string, Bytes> specimens;
  File file;
  file.add(storedEntry("e", "x"), "x");
  specimens["mimetype-missing"] = file.bytes();
  file.add(storedEntry("mimetype", "a/b"), "a/b");
  specimens["mimetype-not-first"] = file.bytes();
  const Bytes packed = zipbytes::storedDeflate("a/b");
  specimens["mimetype-compressed"] =
      File().add(zipbytes::deflatedEntry("mimetype", "a/b", packed), packed).bytes();
  Entry extra = storedEntry("mimetype", "a/b");
  extra.localExtra = zipbytes::extraBlock(0x5455, "x");
  specimens["mimetype-extra-field"] = File().add(extra, "a/b").bytes();
  specimens["mimetype-byte-order-mark"] = typed(
      "\xEF\xBB\xBF"
      "a/b");
  specimens["mimetype-line-end"] = typed("a/b\r\n");
  specimens["mimetype-text"] = typed("no type");
  return specimens;
}

std::map<std::string, Bytes> containerSpecimens() {
  std::map<std::string, Bytes> specimens;
  const File file = healthy();
  specimens["end-missing"] = file.bytes().substr(0, file.bytes().size() - 22);
  specimens["split"] = ended([](auto& end) { end.disk = end.directoryDisk = 1; });
  specimens["end-comment-cut"] = ended([](auto& end) { end.commentLength = 9; });
  specimens["end-comment-signature"] = ended([](auto& end) { end.comment = "PK\5\6!"; });
  specimens["end-trailing-bytes"] = file.bytes() + "tail";
  specimens["leading-bytes"] = "head" + file.bytes();
  specimens["directory-missing"] = ended([](auto& end) { end.directoryOffset += 1; });
  specimens["directory-damaged"] = flip(with(storedEntry("e", "x")), healthy().offset() + 32 + 55);
  specimens["directory-size"] = ended([](auto& end) { end.directorySize += 16; });
  const Bytes two = with(storedEntry("e", "x"));
  Bytes counted = two;
  counted[two.size() - 12] = counted[two.size() - 14] = 1;
  specimens["directory-count"] = counted;
  specimens["zip64-end-missing"] = ended([](auto& end) { end.entries = 0xFFFF; });
  File dead = healthy();
  dead.raw("dead").add(storedEntry("e", "x"), "x");
  specimens["dead-bytes"] = dead.bytes();
  File hidden = healthy();
  hidden.raw(zipbytes::localHeader(storedEntry("hidden", "x")) + "x")
      .add(storedEntry("e", "x"), "x");
  specimens["hidden-entry"] = hidden.bytes();
  File over = healthy();
  Entry again = storedEntry("e", "a/b");
  again.offset = 0;
  over.list(again);
  specimens["overlap"] = over.bytes();
  zipbytes::Zip64End zip64;
  zip64.entries = 7;
  zip64.directorySize = file.directory().size();
  zip64.directoryOffset = file.offset();
  const std::uint64_t place = file.offset() + file.directory().size();
  const Bytes plain = file.bytes();
  specimens["zip64-end-differs"] = plain.substr(0, place) + zipbytes::zip64EndRecord(zip64) +
                                   zipbytes::zip64Locator(place) + plain.substr(place);
  return specimens;
}

std::map<std::string, Bytes> headerSpecimens() {
  std::map<std::string, Bytes> specimens;
  specimens["zip64-number-missing"] = changed([](Entry& e) { e.size = 0xFFFFFFFF; });
  specimens["zip64-needless"] = changed([](Entry& e) {
    e.centralExtra = zipbytes::zip64Block({1, 1});
  });
  File far = healthy();
  Entry lost = storedEntry("e", "x");
  lost.offset = 5;
  specimens["local-missing"] = far.list(lost).bytes();
  specimens["local-name"] = differing([](Entry& e) { e.name = "f"; });
  specimens["local-method"] = differing([](Entry& e) { e.method = 8; });
  specimens["local-flags"] = differing([](Entry& e) { e.flags = 1; });
  specimens["local-crc"] = differing([](Entry& e) { e.crc ^= 1; });
  specimens["local-size"] = differing([](Entry& e) { e.size = 2; });
  specimens["local-date"] = differing([](Entry& e) { e.date = 0x0022; });
  const auto described = [](Entry& e) { e.flags = 8; };
  specimens["descriptor-missing"] = changed(described);
  const Bytes descriptor = zipbytes::dataDescriptor(zipbytes::crc32("x"), 1, 1);
  specimens["descriptor-unsigned"] = changed(described, "x", descriptor.substr(4));
  specimens["disk-number"] = changed([](Entry& e) { e.disk = 1; });
  specimens["version-needed"] = changed([](Entry& e) { e.versionNeeded = 200; });
  specimens["headers-masked"] = changed([](Entry& e) { e.flags = 0x2000; });
  specimens["extra-field"] = changed([](Entry& e) { e.centralExtra = "odd"; });
  specimens["encrypted"] = changed([](Entry& e) { e.flags = 1; });
  specimens["method-unknown"] = changed([](Entry& e) { e.method = 12; });
  specimens["folder-data"] = named("folder/");
  specimens["symbolic-link"] = changed([](Entry& e) {
    e.versionMadeBy = 0x0314;
    e.externalAttributes = 0120777u << 16;
  });
  specimens["date-invalid"] = changed([](Entry& e) { e.date = 0; });
  return specimens;
}

std::map<std::string, Bytes> dataSpecimens() {
  std::map<std::string, Bytes> specimens;
  specimens["data-cut"] = changed([](Entry& e) { e.size = e.compressedSize = 100000; });
  specimens["data-damaged"] = changed([](Entry& e) { e.method = 8; }, "\xff\xff\xff");
  const Bytes packed = zipbytes::storedDeflate("x");
  Entry shorter = zipbytes::deflatedEntry("e", "x", packed);
  shorter.size = 2;
  specimens["data-size"] = with(shorter, packed);
  File shared = healthy();
  Entry sharing = storedEntry("e", Bytes(200, 'x'));
  sharing.offset = shared.offset();
  shared.add(sharing, Bytes(200, 'x')).list(sharing).list(sharing);
  specimens["data-unread"] = shared.bytes();
  specimens["data-crc"] = changed([](Entry& e) { e.crc ^= 1; });
  return specimens;
}

std::map<std::string, Bytes> nameSpecimens() {
  std::map<std::string, Bytes> specimens;
  specimens["name-empty"] = named("");
  specimens["name-absolute"] = named("/etc/passwd");
  specimens["name-parent"] = named("a/../../b");
  specimens["name-backslash"] = named("a\\b");
  specimens["name-drive"] = named("c:b");
  specimens["name-control"] = named("a\nb");
  specimens["name-windows"] = named("aux.txt");
  specimens["name-segment"] = named("a//b");
  specimens["name-encoding"] = named("caf\xe9");
  specimens["name-duplicate"] = twice("same", "same");
  specimens["name-case"] = twice("Readme", "README");
  specimens["name-file-and-folder"] = twice("a", "a/b");
  specimens["properties-damaged"] = properties("<pkgProperties>");
  specimens["properties-foreign"] = properties(
      "<pkgProperties><package/><entries><entry path=\"mimetype\"><prop key=\"colour\">red</prop>"
      "</entry></entries></pkgProperties>");
  specimens["properties-no-entry"] = properties(
      "<pkgProperties><package/><entries><entry path=\"gone\"><prop key=\"mac_type\">a</prop>"
      "</entry></entries></pkgProperties>");
  return specimens;
}

class Specimens : public Qcfpkg {
protected:
  std::set<std::string> findingsOf(const Bytes& bytes) const {
    folder.write("specimen", bytes);
    const auto finished = run({"check", "--json", "--strict", "specimen"});
    EXPECT_EQ(finished.err, "");
    std::set<std::string> ids;
    const auto json = nlohmann::json::parse(finished.out);
    for (const auto& finding : json[0]["findings"])
      ids.insert(finding["id"]);
    EXPECT_EQ(finished.status, ids.empty() ? 0 : 1);
    return ids;
  }
  // What a specimen's fault drags along.
  void expectOnly(const std::map<std::string, Bytes>& specimens,
                  const std::map<std::string, std::set<std::string>>& along = {}) const {
    for (const auto& [id, bytes] : specimens) {
      std::set<std::string> expected{id};
      if (const auto more = along.find(id); more != along.end()) {
        expected.insert(more->second.begin(), more->second.end());
      }
      EXPECT_EQ(findingsOf(bytes), expected) << id;
    }
  }
};

TEST_F(Specimens, AHealthyPackageHasNone) {
  EXPECT_EQ(findingsOf(healthy().bytes()), std::set<std::string>());
  EXPECT_EQ(findingsOf(with(storedEntry("e", "x"))), std::set<std::string>());
}

TEST_F(Specimens, OfTheType) {
  expectOnly(typeSpecimens());
}

TEST_F(Specimens, OfTheContainer) {
  expectOnly(containerSpecimens(), {{"hidden-entry", {"dead-bytes"}}, {"overlap", {"local-name"}}});
}

TEST_F(Specimens, OfHeaders) {
  expectOnly(headerSpecimens(), {{"zip64-number-missing", {"data-size"}}});
}

TEST_F(Specimens, OfData) {
  expectOnly(dataSpecimens(),
             {{"data-cut", {"overlap"}}, {"data-unread", {"overlap", "name-duplicate"}}});
}

TEST_F(Specimens, OfNamesAndProperties) {
  expectOnly(nameSpecimens());
}

TEST_F(Specimens, ThereIsOneForEachKindOfFinding) {
  std::set<std::string> kinds;
  std::istringstream lines(must({"check", "--kinds"}));
  for (std::string line; std::getline(lines, line);)
    kinds.insert(line.substr(0, line.find(' ')));
  std::set<std::string> shown;
  for (const auto& specimens : {typeSpecimens(), containerSpecimens(), headerSpecimens(),
                                dataSpecimens(), nameSpecimens()}) {
    for (const auto& [id, bytes] : specimens)
      shown.insert(id);
  }
  EXPECT_EQ(shown, kinds);
}

TEST_F(Specimens, EveryOtherCommandSurvivesEachOfThem) {
  for (const auto& specimens : {typeSpecimens(), containerSpecimens(), headerSpecimens(),
                                dataSpecimens(), nameSpecimens()}) {
    for (const auto& [id, bytes] : specimens) {
      folder.write("specimen", bytes);
      folder.write("new", "new");
      for (const auto& arguments :
           std::vector<std::vector<std::string>>{{"list", "specimen"},
                                                 {"info", "specimen"},
                                                 {"extract", "specimen", "-C", "out"},
                                                 {"add", "specimen", "new"},
                                                 {"comment", "specimen", "c"},
                                                 {"--quiet", "compact", "specimen"}}) {
        const auto finished = run(arguments);
        EXPECT_TRUE(finished.status == 0 || finished.status == 3) << id << " " << arguments[0];
        EXPECT_LE(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
      }
    }
  }
}

}  // namespace
