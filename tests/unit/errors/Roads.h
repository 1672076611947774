#pragma once

#include <functional>
#include <string>
#include <vector>

namespace errors {

// One way to a failure, and the failure.
struct Road {
  int code;
  bool isIO;
  std::string text;  // the system's, of code 50; empty: that of the number
  const char* what;
  std::function<void()> action;
};

// Opening packages; calls on packages that are read; calls on packages that are written.
std::vector<Road> directoryRoads();
std::vector<Road> callRoads();
std::vector<Road> writingRoads();

}  // namespace errors
