// A package under each conformance policy, opened, walked, every entry read and sought.

#include "Input.h"
#include "unit/reading/Exploration.h"

void fuzz::run(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const reading::Policy policy(static_cast<std::int32_t>(input.below(4)));
  const std::string bytes = input.rest();
  reading::raisedBy([&] {
    reading::MemoryPackage package(bytes, &policy);
    reading::explore(*package);
  });
}
