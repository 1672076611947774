#pragma once

#include <atomic>
#include <exception>
#include <string>
#include <thread>
#include <vector>

namespace threads {

// Runs `work(0)` to `work(count - 1)` at the same moment, each in a thread of its own. Returns what
// failures they ended with, in words.
template <class Work>
std::vector<std::string> atOnce(int count, const Work& work) {
  std::atomic<int> waiting{count};
  std::vector<std::string> failures(static_cast<std::size_t>(count));
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting.load() != 0)
        std::this_thread::yield();
      try {
        work(i);
      } catch (const std::exception& e) {
        failures[static_cast<std::size_t>(i)] = e.what();
      } catch (...) {
        failures[static_cast<std::size_t>(i)] = "an exception of another kind";
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  std::vector<std::string> told;
  for (const std::string& failure : failures) {
    if (!failure.empty()) told.push_back(failure);
  }
  return told;
}

}  // namespace threads
