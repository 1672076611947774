// The package road: opening, walking, reading, creating, saving and appending. Every turn has a
// process of its own, so that its time and its peak memory are its own.

#include <cstddef>
#include <cstdlib>

#include "PackageRows.h"
#include "Turns.h"
#include "support/TempDir.h"

int main(int argc, char** argv) {
  const support::TempDir folder;
  // What waits for an update goes there.
  ::setenv("XDG_CACHE_HOME", folder.path().c_str(), 1);
  return turns::run(
      argc, argv,
      "Packages opened, walked, read, created, saved and appended to, against libraries "
      "and programs that do the same. Works in $TMPDIR, with up to 6 GB.",
      [&](bool quick) {
        const std::size_t part = quick ? kQuickPart : 1;
        addGrowthFacts(folder, part);
        addOpenRows(folder, part);
        addReadRows(folder, part);
        addCreateRows(part);
        addCopyRows(part);
      });
}
