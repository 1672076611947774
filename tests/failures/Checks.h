#pragma once

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "failures/Listing.h"
#include "failures/Trial.h"

// What must be true of package files that were written when something failed.
namespace failures {

// The file is a package that has the entries, each whole.
inline void expectHolds(const zipbytes::Bytes& file,
                        const std::map<std::string, zipbytes::Bytes>& entries) {
  Listing all;
  ASSERT_NO_THROW(all = listed(file));
  for (const auto& [name, content] : entries) {
    EXPECT_TRUE(all[name].sound) << name;
    EXPECT_EQ(all[name].content, content) << name;
  }
}

// How many entries end early in a file that is a package with these entries and no others.
inline int cutShort(const zipbytes::Bytes& file,
                    const std::map<std::string, zipbytes::Bytes>& entries) {
  Listing all = listed(file);
  EXPECT_EQ(all.size(), entries.size());
  int cut = 0;
  for (const auto& [name, content] : entries) {
    const zipbytes::Bytes& found = all[name].content;
    EXPECT_EQ(found, content.substr(0, found.size())) << name;
    cut += found == content ? 0 : 1;
  }
  return cut;
}
inline void expectAtMostOneCutShort(const zipbytes::Bytes& file,
                                    const std::map<std::string, zipbytes::Bytes>& entries) {
  EXPECT_LE(cutShort(file, entries), 1);
}

// Whatever happened: with the package gone nothing is left of it but temporary files that could not
// be deleted, and the old file is as it was where the output is another.
inline void expectNothingLeft(const Way& way, Trial& trial, int temporaryFiles = 0) {
  trial.client.drop();
  EXPECT_EQ(trial.recording.filesAlive(), 0);
  EXPECT_EQ(trial.memory.temporaryFiles(), temporaryFiles);
  if (!way.old.empty() && way.output != Output::PackageFile) {
    EXPECT_EQ(trial.memory.bytes("old"), way.old);
  }
}

}  // namespace failures
