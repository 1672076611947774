#include "Program.h"

#include <algorithm>
#include <sstream>

#include <unistd.h>

#include "tools/NamesIn.h"

namespace {

std::string unhex(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return bytes;
}

}  // namespace

support::Finished Qcfpkg::run(std::vector<std::string> arguments, const std::string& input) const {
  arguments.insert(arguments.begin(), QCFPKG);
  return support::run({arguments, input, folder.path(), environment});
}

std::string Qcfpkg::must(const std::vector<std::string>& arguments,
                         const std::string& input) const {
  const auto finished = run(arguments, input);
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.err, "");
  return finished.out;
}

pid_t Qcfpkg::start(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"env", "GCOV_PREFIX=/dev/null", QCFPKG, "--quiet"});
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  if (chdir(folder.path().c_str()) != 0) _exit(126);
  execvp("env", pointers.data());
  _exit(127);
}

support::Finished Qcfpkg::shell(const std::string& command) const {
  return support::run({{"sh", "-c", command, QCFPKG}, {}, folder.path(), environment});
}

void Qcfpkg::expectFailure(const std::vector<std::string>& arguments, int status,
                           const std::string& words) const {
  const auto finished = run(arguments);
  EXPECT_EQ(finished.status, status) << arguments[0];
  EXPECT_EQ(finished.out, "") << arguments[0];
  EXPECT_EQ(finished.err.find("qcfpkg: "), 0u) << finished.err;
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
  EXPECT_NE(finished.err.find(words), std::string::npos) << finished.err;
}

void Qcfpkg::expectSound(const std::string& package) const {
  const auto unzip = support::run({{"unzip", "-tq", package}, {}, folder.path(), {}});
  EXPECT_EQ(unzip.status, 0) << unzip.out << unzip.err;
  EXPECT_EQ(unzip.err, "");
  const std::string bad =
      support::python("import sys, zipfile; print(zipfile.ZipFile(sys.argv[1]).testzip())",
                      {package}, folder.path());
  EXPECT_EQ(bad, "None\n");
}

void Qcfpkg::expectNoFinding(const std::string& package) const {
  const auto finished = run({"check", "--strict", package});
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_EQ(finished.out + finished.err, "");
}

std::vector<Qcfpkg::Fields> Qcfpkg::entriesOf(const std::string& text) {
  std::istringstream lines(text);
  std::vector<Fields> entries;
  for (std::string line; std::getline(lines, line);) {
    Fields& entry = entries.emplace_back();
    std::istringstream fields(line);
    for (std::string name, value; fields >> name >> value;)
      entry[name] = unhex(value);
  }
  return entries;
}

std::vector<Qcfpkg::Fields> Qcfpkg::read(const std::string& package) const {
  static const char* const kScript = R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    for i in z.infolist():
        fields = {'name': i.filename.encode(), 'data': z.read(i), 'method': i.compress_type,
            'flags': i.flag_bits, 'date': '%d-%02d-%02d %02d:%02d:%02d' % i.date_time,
            'system': i.create_system, 'attributes': i.external_attr, 'comment': i.comment,
            'extra': i.extra.hex()}
        print(*('%s %s.' % (name, (value if isinstance(value, bytes) else str(value).encode()).hex())
            for name, value in fields.items()))
)";
  return entriesOf(support::python(kScript, {package}, folder.path()));
}

Qcfpkg::Contents Qcfpkg::contents(const std::string& package) const {
  Contents contents;
  for (Fields& entry : read(package))
    contents[entry["name"]] = entry["data"];
  return contents;
}

Qcfpkg::Contents Qcfpkg::makePackage(const std::string& name) const {
  folder.write("one.txt", "one");
  folder.write("two.txt", std::string(5000, '2'));
  must({"create", "--type", "application/x-test", name, "one.txt", "sub/two.txt=two.txt"});
  std::filesystem::remove(folder / "one.txt");
  std::filesystem::remove(folder / "two.txt");
  return {{"mimetype", "application/x-test"},
          {"one.txt", "one"},
          {"sub/two.txt", std::string(5000, '2')}};
}

Qcfpkg::Contents Qcfpkg::everything() const {
  Contents all;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder.path())) {
    const bool isFile = item.is_regular_file() && !item.is_symlink();
    all[item.path().lexically_relative(folder.path()).string()] =
        isFile ? support::readFile(item.path()) : "";
  }
  return all;
}

std::vector<std::string> Qcfpkg::files() const {
  return namesIn(folder.path());
}
