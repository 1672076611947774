#include <nlohmann/json.hpp>

#include "Program.h"

// What is printed a value at a time is laid out as the whole would be.

namespace {

class JSON : public Qcfpkg {
protected:
  // Runs what prints JSON; returns it.
  nlohmann::ordered_json printed(const std::vector<std::string>& arguments) const {
    const std::string text = run(arguments).out;
    auto json = nlohmann::ordered_json::parse(text);
    EXPECT_EQ(text, json.dump(2) + "\n");
    return json;
  }
  void makeEntries(const std::vector<std::string>& names) const {
    zipbytes::File file;
    for (const std::string& name : names)
      file.add(zipbytes::storedEntry(name, "x"), "x");
    folder.write("a.pkg", file.bytes());
  }
  // More than fits into a buffer.
  void makeMany() const {
    std::vector<std::string> names;
    for (int i = 0; i < kMany; ++i)
      names.push_back("folder/" + std::to_string(i));
    makeEntries(names);
  }
  static constexpr int kMany = 2000;
};

TEST_F(JSON, OfAListIsThisToTheByte) {
  makeEntries({"a"});
  EXPECT_EQ(must({"list", "--json", "a.pkg"}), R"([
  {
    "name": "a",
    "size": 1,
    "compressedSize": 1,
    "method": "stored",
    "modified": "1980-01-01 00:00:00",
    "crc32": "8cdc1683",
    "flags": "-",
    "encrypted": false,
    "folder": false,
    "offset": 0,
    "comment": ""
  }
]
)");
}

TEST_F(JSON, OfNothingIsEmpty) {
  makeEntries({});
  EXPECT_EQ(must({"list", "--json", "a.pkg"}), "[]\n");
  EXPECT_EQ(must({"prop", "list", "--json", "a.pkg"}), "{}\n");
  makePackage("b.pkg");
  EXPECT_EQ(must({"check", "--json", "b.pkg"}),
            "[\n  {\n    \"file\": \"b.pkg\",\n    \"findings\": []\n  }\n]\n");
}

TEST_F(JSON, IsLaidOutAlikeWhateverTheNamesAre) {
  const std::vector<std::string> names{"",        "two\nlines", "a\\n\"b\"", "caf\xe9",
                                       "\x1b[2J", "{}",         ","};
  makeEntries(names);
  EXPECT_EQ(printed({"list", "--json", "a.pkg"}).size(), names.size());
  EXPECT_EQ(printed({"prop", "list", "--json", "a.pkg"}).size(), names.size());
  const auto checked = printed({"check", "--json", "absent", "a.pkg", "two\nlines"});
  EXPECT_EQ(checked[0]["error"], "cannot open absent: No such file or directory");
  EXPECT_EQ(checked[1]["findings"][1]["text"], "an entry has no name");
  EXPECT_EQ(checked[2]["file"], "two\nlines");
}

TEST_F(JSON, OfManyEntriesIsInTheirOrder) {
  makeMany();
  const auto list = printed({"list", "--json", "a.pkg"});
  const auto properties = printed({"prop", "list", "--json", "a.pkg"});
  ASSERT_EQ(list.size(), kMany);
  auto property = properties.begin();
  for (int i = 0; i < kMany; ++i, ++property) {
    ASSERT_EQ(list[static_cast<std::size_t>(i)]["name"], "folder/" + std::to_string(i));
    ASSERT_EQ(property.key(), "folder/" + std::to_string(i));
  }
}

TEST_F(JSON, OfPropertiesHasEntriesOfOneNameWhereTheFirstThatHasAnyStands) {
  zipbytes::File file;
  const auto add = [&](const std::string& name, std::uint16_t date, const zipbytes::Bytes& extra) {
    auto entry = zipbytes::storedEntry(name, "x");
    entry.date = date;
    entry.centralExtra = extra;
    file.add(entry, "x");
  };
  add("none", 0, "");
  add("twice", 0, zipbytes::typeCreatorBlock("TEXTttxt"));
  add("once", 0x5C22, "");
  add("none", 0x5C22, "");
  add("twice", 0x5C22, zipbytes::typeCreatorBlock("TEXTabcd"));
  folder.write("a.pkg", file.bytes());
  EXPECT_EQ(must({"prop", "list", "--json", "a.pkg"}), R"({
  "twice": {
    "type-creator": "5445585461626364",
    "modified": "2026-01-02 00:00:00"
  },
  "once": {
    "modified": "2026-01-02 00:00:00"
  },
  "none": {
    "modified": "2026-01-02 00:00:00"
  }
}
)");
}

TEST_F(JSON, ThatFindsNoRoomIsToldInOneLine) {
  makeMany();
  const auto finished = shell("\"$0\" list --json a.pkg >/dev/full");
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.err, "qcfpkg: cannot write standard output: No space left on device\n");
}

TEST_F(JSON, EndsWithoutAWordWhereNobodyReadsOn) {
  makeMany();
  const auto finished =
      shell("(trap '' PIPE; \"$0\" list --json a.pkg; echo $? >status) | head -c 3 >out");
  EXPECT_EQ(folder.read("status"), "3\n");
  EXPECT_EQ(folder.read("out"), "[\n ");
  EXPECT_EQ(finished.err, "");
}

}  // namespace
