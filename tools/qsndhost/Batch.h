#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Host.h"

// What a command does with one document. Returns what JSON tells of it, besides the file. `label`
// is for a progress bar.
using DocumentWork =
    std::function<nlohmann::json(const std::string& file, const std::string& label)>;

// Does `work` on each of several documents; one that fails does not keep the others from being
// done. Of many, a terminal sees a line for each (unless `silent`, where the work itself prints)
// and a summary ends the run. Raises what is not the document's fault. Returns an array: for each
// document "file", and what the work returned or "error".
nlohmann::json forEachDocument(Host& host, const std::vector<std::string>& files,
                               const std::string& verb, bool silent, const DocumentWork& work);

// Where the outputs of a command go: a single one to a file, or those of many documents to a
// folder.
struct Outputs {
  std::vector<std::string> arguments;  // FILE OUT, or FILE... for a folder
  std::string folder;                  // empty for a single file
};

// A document, and the file that is made of it.
struct Task {
  std::string file;
  std::string output;
};

// How a command speaks of its outputs.
struct OutputWords {
  const char* command;
  const char* verb;
  const char* out;  // the output in the help, as "OUT.wav"
};

// Adds the documents, the output and --folder.
void addOutputs(tools::Command& command, Outputs& outputs, const OutputWords& words);

// Raises tools::Failure where an output is missing, the document itself, or the output of another
// document too. Outputs in a folder have the document's name and the ending `extension`; the folder
// is made.
std::vector<Task> tasksOf(const Outputs& outputs, const OutputWords& words,
                          const std::string& extension);

// forEachDocument on the files of the tasks; with `asJSON` the results, which also have "output",
// go to standard output. Raises tools::Failure where that is an output already.
using TaskWork = std::function<nlohmann::json(const Task& task, const std::string& label)>;
void runTasks(Host& host, const std::vector<Task>& tasks, const OutputWords& words, bool asJSON,
              const TaskWork& work);

// An array of results on standard output.
void printJSON(const nlohmann::json& json);
