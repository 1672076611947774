#pragma once

#include <memory>
#include <string>

#include "HostKit/Bundle.h"
#include "HostKit/Document.h"
#include "common/Program.h"

// What the commands of this program share.
struct Host : tools::Session {
  std::string bundlePath;  // as given; empty to look for it

  // The importer, loaded. Raises tools::Failure.
  hostkit::Bundle loadBundle() const;
};

// Opens a document. Raises tools::Failure, which names the file.
std::unique_ptr<hostkit::Document> openDocument(const hostkit::Bundle& bundle,
                                                const std::string& path);

// A person's word for the importer's number of a sample format.
std::string sampleFormatName(std::int32_t number);

// Each adds its command to the program.
void addExport(CLI::App& app, Host& host);
void addFormats(CLI::App& app, Host& host);
void addInfo(CLI::App& app, Host& host);
