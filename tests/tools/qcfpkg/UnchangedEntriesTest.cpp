#include <set>

#include "Program.h"

// Every command that changes a package leaves the entries that it does not speak of as they were,
// as another program reads them.

namespace {

struct ChangingCommand {
  const char* name;
  std::vector<std::string> arguments;
  std::set<std::string> touched;  // entries that it writes or removes
};

void PrintTo(const ChangingCommand& command, std::ostream* out) {
  *out << command.name;
}

class UnchangedEntries : public Qcfpkg, public testing::WithParamInterface<ChangingCommand> {
protected:
  void expectUnchanged(const std::string& package) const {
    folder.write("input", "new content");
    const auto untouched = [&] {
      std::vector<Fields> entries;
      for (const Fields& entry : read(package)) {
        if (GetParam().touched.count(entry.at("name")) == 0) entries.push_back(entry);
      }
      return entries;
    };
    const auto before = untouched();
    const std::string bytes = folder.read(package);
    const auto finished = run(GetParam().arguments);
    ASSERT_EQ(finished.status, 0) << finished.err;
    ASSERT_NE(folder.read(package), bytes) << "nothing was changed";
    const auto after = untouched();
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
      for (const char* const key :
           {"name", "data", "method", "date", "system", "attributes", "comment", "extra"}) {
        EXPECT_EQ(after[i].at(key), before[i].at(key)) << before[i].at("name") << " " << key;
      }
    }
    expectSound(package);
    const auto seven = support::run({{"7z", "t", package}, {}, folder.path(), {}});
    EXPECT_EQ(seven.status, 0) << seven.out;
  }
};

TEST_P(UnchangedEntries, OfAPackageOfItsOwn) {
  std::filesystem::create_directories(folder / "tree/empty");
  folder.write("tree/nothing", "");
  folder.write("tree/text", std::string(70000, 't'));
  python("import os; open('tree/noise', 'wb').write(os.urandom(70000))");
  folder.write("dead", "dead");
  folder.write("m\xc3\xbcll", "waste");
  must({"create", "--type", "application/x-test", "a.pkg", "victim=dead", "tree", "m\xc3\xbcll"});
  must({"add", "--store", "a.pkg", "stored=tree/text", "dead"});
  must({"prop", "set", "a.pkg", "tree/text", "type-creator", "5445585474747874"});
  must({"prop", "set", "a.pkg", "tree/text", "mac-type", "TEXT"});
  must({"comment", "a.pkg", "kept, unless it is changed"});
  must({"remove", "--in-place", "a.pkg", "dead"});
  expectUnchanged("a.pkg");
  const bool isComment = std::string(GetParam().name).find("omment") != std::string::npos;
  EXPECT_EQ(must({"comment", "a.pkg"}), isComment ? "new\n" : "kept, unless it is changed\n");
  EXPECT_EQ(must({"prop", "get", "a.pkg", "tree/text", "mac-type"}), "TEXT\n");
}

// With what this program would not write: descriptors, attributes of another system, remarks,
// extra fields, dead bytes.
TEST_P(UnchangedEntries, OfAPackageOfAnotherProgram) {
  python(
      "import io, zipfile\n"
      "class Pipe(io.BytesIO):\n"
      "    def seekable(self): return False\n"
      "    def tell(self): raise OSError\n"
      "pipe = Pipe()\n"
      "z = zipfile.ZipFile(pipe, 'w', zipfile.ZIP_DEFLATED)\n"
      "i = zipfile.ZipInfo('mimetype', (2001, 2, 3, 4, 5, 6)); z.writestr(i, "
      "'application/x-test')\n"
      "i = zipfile.ZipInfo('victim', (2001, 2, 3, 4, 5, 6)); z.writestr(i, 'victim')\n"
      "i = zipfile.ZipInfo('script', (2002, 2, 3, 4, 5, 6)); i.external_attr = 0o100755 << 16\n"
      "i.compress_type = zipfile.ZIP_DEFLATED; i.comment = b'a remark'\n"
      "i.extra = b'\\x55\\x54\\x05\\x00\\x01abcd'; z.writestr(i, 'data' * 10000)\n"
      "z.writestr('m\\u00fcll', 'waste'); z.writestr(zipfile.ZipInfo('folder/'), '')\n"
      "z.comment = b'of the whole'\n"
      "z.close()\n"
      "open('a.pkg', 'wb').write(pipe.getvalue())\n"
      "z = zipfile.ZipFile('a.pkg', 'a'); z.writestr('late', 'late')\n"
      "z.fp.write(b'dead bytes'); z.start_dir = z.fp.tell(); z._didModify = True; z.close()\n");
  expectUnchanged("a.pkg");
}

INSTANTIATE_TEST_SUITE_P(
    By, UnchangedEntries,
    testing::Values(
        ChangingCommand{"add", {"add", "a.pkg", "input"}, {"input"}},
        ChangingCommand{"replace", {"add", "a.pkg", "victim=input"}, {"victim"}},
        ChangingCommand{"addInPlace", {"add", "--in-place", "a.pkg", "input"}, {"input"}},
        ChangingCommand{
            "replaceInPlace", {"add", "--in-place", "a.pkg", "victim=input"}, {"victim"}},
        ChangingCommand{"remove", {"remove", "a.pkg", "victim"}, {"victim"}},
        ChangingCommand{"removeInPlace", {"remove", "--in-place", "a.pkg", "victim"}, {"victim"}},
        ChangingCommand{"type", {"type", "a.pkg", "application/x-new"}, {"mimetype"}},
        ChangingCommand{"comment", {"comment", "a.pkg", "new"}, {}},
        ChangingCommand{"commentInPlace", {"comment", "--in-place", "a.pkg", "new"}, {}},
        ChangingCommand{"propModified",
                        {"prop", "set", "a.pkg", "victim", "modified", "2005-06-07 08:09:10"},
                        {"victim"}},
        ChangingCommand{"propTypeCreator",
                        {"prop", "set", "a.pkg", "victim", "type-creator", "4141414142424242"},
                        {"victim"}},
        ChangingCommand{"propMacType",
                        {"prop", "set", "a.pkg", "victim", "mac-type", "TEXT"},
                        {"META-INF/pkgproperties.xml"}},
        ChangingCommand{"compact", {"compact", "a.pkg"}, {}}),
    [](const auto& tested) { return tested.param.name; });

}  // namespace
