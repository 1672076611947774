// An importer of text files such as "2 8000 1000 crash 25": channels, rate, frames, and what goes
// wrong at which selector: a word of goWrong() or the result that it returns. Its audio counts up
// from 0 in steps of 1/1000. Before there is a document, the environment tells what goes wrong.

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "HostRecords.h"

namespace {

struct Document {
  std::uint32_t channels = 0;
  float rate = 0;
  std::int64_t frames = 0;
  std::string fault;
  int selector = -1;
};

Document gDocument;

[[noreturn]] void die(int signal) {
  std::signal(signal, SIG_DFL);  // a sanitizer would tell another story
  std::raise(signal);
  std::abort();
}

// Writes to whatever connects its process with others.
void spoil() {
  const std::string bytes(64, '\xFF');
  for (int descriptor = STDERR_FILENO + 1; descriptor < 64; ++descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISSOCK(status.st_mode)) continue;
    (void)!write(descriptor, bytes.data(), bytes.size());
  }
}

// The result that the selector has to return; 0 for its own.
std::int32_t goWrong(const std::string& fault) {
  if (fault == "crash") die(SIGSEGV);
  if (fault == "divide") die(SIGFPE);
  if (fault == "exit") _exit(7);
  if (fault == "print") (void)!write(STDOUT_FILENO, "chatter\n", 8);
  if (fault == "slow") usleep(30000);
  if (fault == "spoil") spoil();
  while (fault == "hang")
    pause();
  return std::atoi(fault.c_str());
}

std::int32_t consider(int selector) {
  if (gDocument.selector == selector) return goWrong(gDocument.fault);
  const char* const told = std::getenv("FAULTY_IMPORTER");
  if (told == nullptr) return 0;
  std::istringstream words(told);
  std::string fault;
  int where = -1;
  return words >> fault >> where && where == selector ? goWrong(fault) : 0;
}

bool open(const imFileOpenRec8* record) {
  std::string path;
  for (const char16_t* unit = record->path; *unit != 0; ++unit)
    path.push_back(static_cast<char>(*unit));
  std::ifstream file(path);
  gDocument = {};
  file >> gDocument.channels >> gDocument.rate >> gDocument.frames;
  if (!file) return false;
  file >> gDocument.fault >> gDocument.selector;
  return true;
}

void inform(imFileInfoRec8* record) {
  record->channelCount = gDocument.channels;
  record->sampleRate = gDocument.rate;
  record->frameCount = gDocument.frames;
  record->sampleFormat = 6;
  record->privateData = &gDocument;
}

void serve(const imImportAudioRec7* record) {
  for (std::uint32_t channel = 0; channel < gDocument.channels; ++channel) {
    for (std::uint32_t i = 0; i < record->size; ++i) {
      record->buffers[channel][i] = static_cast<float>(record->position + i) / 1000;
    }
  }
}

}  // namespace

extern "C" [[gnu::visibility("default")]] std::int32_t xImportEntry(int selector, imStdParms*,
                                                                    void* param1, void* param2) {
  if (selector == 39) {
    if (!open(static_cast<imFileOpenRec8*>(param2))) return 31;
    static_cast<imFileOpenRec8*>(param2)->privateData = &gDocument;
  }
  if (const std::int32_t result = consider(selector)) return result;
  switch (selector) {
    case 0:
      return 400;
    case 14:
      if (param1 != nullptr) return 301;
      std::strcpy(static_cast<imIndFormatRec*>(param2)->name, "Faulty");
      return 0;
    case 25:
      serve(static_cast<imImportAudioRec7*>(param2));
      return 0;
    case 37:
      inform(static_cast<imFileInfoRec8*>(param2));
      return 0;
    default:
      return 0;
  }
}
