#pragma once

#include <future>
#include <string>
#include <string_view>
#include <vector>

#include "support/Run.h"
#include "support/TempDir.h"

// What other people's ZIP programs say of a file.
namespace golden {

struct Reader {
  std::string name;
  std::vector<std::string> command;  // the file's path follows
};

inline const std::vector<Reader>& readers() {
  static const std::vector<Reader> all = {
      {"unzip", {"unzip", "-t"}},
      {"zipinfo", {"zipinfo"}},
      {"zipfile", {"python3", "-m", "zipfile", "-t"}},
      {"bsdtar", {"bsdtar", "-tvf"}},
      {"7z", {"7z", "t"}},
      {"ziptool", {"ziptool", "-c"}},
  };
  return all;
}

inline bool complains(const support::Finished& finished) {
  const std::string text = finished.out + finished.err;
  for (const std::string_view word :
       {"warning", "WARNING", "Warning", "error:", "ERROR", "mismatch", "corrupted"}) {
    if (text.find(word) != std::string::npos) return true;
  }
  return false;
}

// What a program says: "accepts", "warns" or "refuses".
inline std::string verdict(const Reader& reader, const std::string& path) {
  // Names outside ASCII need a locale that has them.
  support::Command command{reader.command, {}, {}, {{"LC_ALL", "C.UTF-8"}}};
  command.arguments.push_back(path);
  if (reader.name == "ziptool") {
    command.arguments.push_back("get_num_entries");
    command.arguments.push_back("0");
  }
  const support::Finished finished = support::run(command);
  if (finished.succeeded()) return complains(finished) ? "warns" : "accepts";
  // Info-ZIP and 7-Zip end with 1 when they warn.
  const bool gentle = reader.name == "unzip" || reader.name == "zipinfo" || reader.name == "7z";
  return gentle && finished.status == 1 ? "warns" : "refuses";
}

// The verdicts that are not "accepts", as in "unzip warns, 7z refuses"; empty where every program
// accepts the file without a warning.
inline std::string objections(std::string_view bytes) {
  const support::TempDir folder;
  const std::string path = folder.write("a.zip", bytes);
  std::vector<std::future<std::string>> answers;
  for (const Reader& reader : readers())
    answers.push_back(std::async(std::launch::async, verdict, reader, path));
  std::string all;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const std::string answer = answers[i].get();
    if (answer != "accepts") all += (all.empty() ? "" : ", ") + readers()[i].name + " " + answer;
  }
  return all;
}

}  // namespace golden
