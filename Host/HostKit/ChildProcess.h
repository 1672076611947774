#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <sys/types.h>

namespace hostkit {

// A copy of this process that answers questions, so that whatever its work does to it, this process
// lives on. One question at a time, from one thread; the process must have no others when it is
// copied.
class ChildProcess {
public:
  // Answers a question; runs in the child. An Error that it raises is raised by ask(). It is
  // destroyed there when nobody asks any more, unless the child has been ended.
  using Answer = std::function<std::string(const std::string& question)>;

  // `name` is what errors call the child, as "the importer"; `patience` is how long an answer may
  // take, zero for any time. Raises Error when there can be no process. What the child writes to
  // standard output goes to standard error.
  ChildProcess(std::string name, Answer answer, std::chrono::seconds patience);
  // Ends the child, whatever it is doing.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The answer. Raises what the answer raised, and an Error that tells its end when the child
  // crashed, ended itself, could not be reached or was silent for too long; there is no child any
  // more then.
  std::string ask(const std::string& question);

private:
  using Clock = std::chrono::steady_clock;

  void receive(void* bytes, std::size_t size, Clock::time_point deadline);
  [[noreturn]] void failAsCutOff(Clock::time_point deadline);
  [[noreturn]] void failAsUnreachable();
  [[noreturn]] void failAsItEnded(Clock::time_point deadline);
  [[noreturn]] void failAsTooSlow();
  void end() noexcept;

  std::string fName;
  std::chrono::seconds fPatience;
  int fSocket = -1;
  pid_t fChild = -1;
};

}  // namespace hostkit
