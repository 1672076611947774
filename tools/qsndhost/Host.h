#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "HostKit/AudioSource.h"
#include "HostKit/Bundle.h"
#include "common/Program.h"

// What the commands of this program share.
struct Host : tools::Session {
  std::string bundlePath;  // as given; empty to look for it
  bool inProcess = false;  // import and draw here, not each document in processes of their own
  int timeout = 60;        // seconds for one answer of the importer, or a picture; 0 for any time

  // What the importer offers. Raises tools::Failure.
  std::vector<hostkit::Format> formats();
  // Opens a document. Raises hostkit::Error, and BundleFailure for an importer that does not load.
  std::unique_ptr<hostkit::AudioSource> open(const std::string& path);

private:
  std::optional<hostkit::Bundle> fBundle;  // where nothing is isolated
};

// The importer itself cannot be loaded, so that there is no use in going on to another document.
class BundleFailure : public tools::Failure {
public:
  using Failure::Failure;
};

// Does `work` on a document, and turns what the importer fails at into a tools::Failure that says
// what was to be done (`verb`, as "export") with which file.
void telling(const std::string& verb, const std::string& file, const std::function<void()>& work);

// Each adds its command to the program.
void addExport(tools::Command& program, Host& host);
void addFormats(tools::Command& program, Host& host);
void addInfo(tools::Command& program, Host& host);
void addMake(tools::Command& program, Host& host);
void addWaveform(tools::Command& program, Host& host);
