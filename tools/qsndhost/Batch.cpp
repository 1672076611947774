#include "Batch.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include <fmt/format.h>

#include "Words.h"
#include "common/FileStatus.h"
#include "common/SyncFolder.h"
#include "common/Terminal.h"

namespace fs = std::filesystem;

namespace {

void refuse(const std::string& verb, const std::string& file, const std::string& reason) {
  throw tools::Failure(fmt::format("cannot {} {}: {}", verb, tools::shown(file), reason),
                       tools::ExitUsage);
}

void checkOutput(const Task& task, const std::string& verb) {
  if (task.output != "-" && tools::isSameFile(task.file, task.output)) {
    refuse(verb, task.file, "the output is the document itself");
  }
}

void makeFolder(const std::string& folder) {
  if (const std::error_code error = tools::makeFolder(folder)) {
    throw tools::Failure(
        fmt::format("cannot make the folder {}: {}", tools::shown(folder), error.message()));
  }
}

std::vector<Task> folderTasks(const Outputs& outputs, const OutputWords& words,
                              const std::string& extension) {
  std::vector<Task> tasks;
  std::map<std::string, std::string> taken;
  for (const std::string& file : outputs.arguments) {
    const auto name = fs::path(file).filename().replace_extension(extension);
    const std::string output = (fs::path(outputs.folder) / name).string();
    const auto [other, isNew] = taken.insert({output, file});
    if (!isNew) {
      refuse(words.verb, file,
             fmt::format("{} would also be the output of {}", tools::shown(output),
                         tools::shown(other->second)));
    }
    tasks.push_back({file, output});
  }
  return tasks;
}

std::string positionText(std::size_t index, std::size_t count) {
  const auto all = std::to_string(count);
  return fmt::format("[{:>{}}/{}]", index + 1, all.size(), all);
}

void showLine(const std::string& line) {
  tools::printError("{}\n", shortened(line, tools::terminalColumns() - 1));
}

void summarise(const Host& host, std::size_t count, std::size_t failed) {
  host.note(failed == 0
                ? fmt::format("all {} documents done", count)
                : fmt::format("{} of {} documents done, {} failed", count - failed, count, failed));
}

}  // namespace

nlohmann::json forEachDocument(Host& host, const std::vector<std::string>& files,
                               const std::string& verb, bool silent, const DocumentWork& work) {
  const bool isOne = files.size() == 1;
  const bool showsLines = !isOne && !silent && !host.quiet && tools::errorsGoToTerminal();
  auto results = nlohmann::json::array();
  std::size_t failed = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string& file = files[i];
    const std::string position = positionText(i, files.size());
    const std::string name = tools::shown(fs::path(file).filename().string());
    const std::string label = isOne ? name : std::string(position).append(" ").append(name);
    nlohmann::json result{{"file", file}};
    try {
      telling(verb, file, [&] { result.update(work(file, label)); });
      if (showsLines) showLine(position + " " + tools::shown(file));
    } catch (const BundleFailure&) {
      throw;
    } catch (const tools::Failure& failure) {
      host.report(failure);
      result["error"] = failure.what();
      ++failed;
    }
    results.push_back(std::move(result));
  }
  if (!isOne) {
    summarise(host, files.size(), failed);
    if (failed != 0) host.code = tools::ExitFailed;
  }
  return results;
}

void addOutputs(tools::Command& command, Outputs& outputs, const OutputWords& words) {
  command
      .option("FILE", outputs.arguments,
              fmt::format("A sound document, then {}, the file to write (- is standard "
                          "output); with --folder, any number of documents",
                          words.out))
      .required()
      .typeName(words.out);
  command
      .option("-d,--folder", outputs.folder,
              "Write an output for each document to this folder, which is made where missing")
      .folder();
}

std::vector<Task> tasksOf(const Outputs& outputs, const OutputWords& words,
                          const std::string& extension) {
  std::vector<Task> tasks;
  if (!outputs.folder.empty()) {
    tasks = folderTasks(outputs, words, extension);
  } else if (outputs.arguments.size() == 2) {
    tasks.push_back({outputs.arguments[0], outputs.arguments[1]});
  } else {
    throw tools::Failure(fmt::format("{0} takes FILE {1}, or FILE... --folder FOLDER; see "
                                     "qsndhost {0} --help",
                                     words.command, words.out),
                         tools::ExitUsage);
  }
  for (const Task& task : tasks)
    checkOutput(task, words.verb);
  if (!outputs.folder.empty()) makeFolder(outputs.folder);
  return tasks;
}

void runTasks(Host& host, const std::vector<Task>& tasks, const OutputWords& words, bool asJSON,
              const TaskWork& work) {
  if (asJSON && tasks.front().output == "-") {
    throw tools::Failure("--json and the output cannot both go to standard output",
                         tools::ExitUsage);
  }
  std::vector<std::string> files;
  files.reserve(tasks.size());
  for (const Task& task : tasks)
    files.push_back(task.file);
  auto next = tasks.begin();
  const auto results = forEachDocument(host, files, words.verb, false,
                                       [&](const std::string&, const std::string& label) {
                                         const Task& task = *next++;
                                         nlohmann::json result{{"output", task.output}};
                                         result.update(work(task, label));
                                         return result;
                                       });
  if (asJSON) printJSON(results);
}

void printJSON(const nlohmann::json& json) {
  fmt::print("{}\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}
