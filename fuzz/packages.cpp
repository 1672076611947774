// A package under each conformance policy, opened and walked, its entries read and sought, as far
// as explore() goes.

#include "Input.h"
#include "support/MemoryFileSystem.h"
#include "unit/reading/Exploration.h"

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const reading::Policy policy(static_cast<std::int32_t>(input.below(4)));
  support::MemoryFileSystem memory;
  memory.put("a.pkg", input.rest());
  reading::raisedBy([&] {
    const reading::Package package =
        pkg::QCFPackageFactory().openPackage("a.pkg", reading::kIn, &memory, &policy, nullptr);
    reading::explore(*package);
  });
}
