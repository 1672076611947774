#include "HostKit/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "HostKit/Error.h"

namespace hostkit {
namespace {

using namespace std::chrono_literals;

// What goes before the bytes of a message. Both ends are of one build.
struct Head {
  std::size_t size;
  std::int32_t failed;  // the bytes are the text of an Error
  std::int32_t result;  // of that error
};

// Larger than any answer: a child whose memory is spoilt may say anything.
constexpr std::size_t kMostBytes = 1u << 30;

// Writing to a process that is gone must not end this one.
class IgnoringPipeSignal {
public:
  IgnoringPipeSignal() : fBefore(std::signal(SIGPIPE, SIG_IGN)) {}
  ~IgnoringPipeSignal() { std::signal(SIGPIPE, fBefore); }
  IgnoringPipeSignal(const IgnoringPipeSignal&) = delete;
  IgnoringPipeSignal& operator=(const IgnoringPipeSignal&) = delete;

private:
  void (*fBefore)(int);
};

bool writeAll(int socket, const void* bytes, std::size_t size) {
  auto* from = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t written = ::write(socket, from, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    from += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool sendMessage(int socket, Head head, const std::string& bytes) {
  head.size = bytes.size();
  return writeAll(socket, &head, sizeof(head)) && writeAll(socket, bytes.data(), bytes.size());
}

bool readAll(int socket, void* bytes, std::size_t size) {
  auto* to = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::read(socket, to, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    to += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool sendAnswer(int socket, const ChildProcess::Answer& answer, const std::string& question) {
  try {
    return sendMessage(socket, {0, 0, 0}, answer(question));
  } catch (const Error& error) {
    return sendMessage(socket, {0, 1, error.result()}, error.what());
  } catch (const std::bad_alloc&) {
    return sendMessage(socket, {0, 1, 0}, "out of memory");
  } catch (const std::exception& error) {
    return sendMessage(socket, {0, 1, 0}, error.what());
  }
}

std::string turnedAway(const std::string&) {
  throw Error("no process can be made: its output cannot be redirected");
}

// The child, until nobody asks any more.
[[noreturn]] void serve(int socket, ChildProcess::Answer answer, unsigned patience) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGALRM})
    std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);   // where nobody waits for the answer, there is still to clear up
  std::set_terminate(std::abort);  // what the parent does about it must not be done twice
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) answer = turnedAway;
  Head head{};
  std::string question;
  while (readAll(socket, &head, sizeof(head))) {
    question.resize(head.size);
    if (!readAll(socket, question.data(), question.size())) break;
    // A child that hangs must end even when nobody is left to end it.
    alarm(patience == 0 ? 0 : patience + 2);
    if (!sendAnswer(socket, answer, question)) break;
    alarm(0);
  }
  alarm(patience == 0 ? 0 : patience + 2);
  answer = nullptr;  // with what its work has opened
  ::_exit(0);
}

std::string describeEnd(int status) {
  if (WIFSIGNALED(status)) {
    return std::string(" crashed: ") + strsignal(WTERMSIG(status));
  }
  return " ended its process with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

ChildProcess::ChildProcess(std::string name, Answer answer, std::chrono::seconds patience)
    : fName(std::move(name)), fPatience(patience) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) {
    throw Error(std::string("no connection to a process can be made: ") + std::strerror(errno));
  }
  std::fflush(nullptr);  // what is in buffers would be written twice
  fChild = fork();
  if (fChild == 0) {
    ::close(sockets[0]);
    try {
      serve(sockets[1], std::move(answer), static_cast<unsigned>(patience.count()));
    } catch (...) {  // what the parent does about a failure must not be done twice
      ::_exit(EXIT_FAILURE);
    }
  }
  const int reason = errno;
  ::close(sockets[1]);
  fSocket = sockets[0];
  if (fChild < 0) {
    ::close(fSocket);
    throw Error(std::string("no process can be made: ") + std::strerror(reason));
  }
}

ChildProcess::~ChildProcess() {
  end();
}

void ChildProcess::end() noexcept {
  if (fSocket >= 0) ::close(fSocket);
  fSocket = -1;
  if (fChild <= 0) return;
  kill(fChild, SIGKILL);
  while (waitpid(fChild, nullptr, 0) < 0 && errno == EINTR) {
  }
  fChild = -1;
}

std::string ChildProcess::ask(const std::string& question) {
  if (fChild <= 0) throw Error(fName + " is gone");
  const auto deadline =
      fPatience.count() == 0 ? Clock::time_point::max() : Clock::now() + fPatience;
  {
    const IgnoringPipeSignal ignoring;
    if (!sendMessage(fSocket, {}, question)) failAsCutOff(deadline);
  }
  Head head{};
  receive(&head, sizeof(head), deadline);
  if (head.size > kMostBytes) {
    end();
    throw Error(fName + " has damaged its process");
  }
  std::string bytes(head.size, '\0');
  receive(bytes.data(), bytes.size(), deadline);
  if (head.failed != 0) throw Error(bytes, head.result);
  return bytes;
}

void ChildProcess::receive(void* bytes, std::size_t size, Clock::time_point deadline) {
  auto* to = static_cast<char*>(bytes);
  while (size > 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) failAsTooSlow();
    // A wait of any length is made of short ones: poll counts in an int.
    pollfd waiting{fSocket, POLLIN, 0};
    const auto step = std::min<std::chrono::milliseconds>(left, 10s);
    const int ready = poll(&waiting, 1, static_cast<int>(step.count()));
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    if (ready < 0) failAsUnreachable();
    const ssize_t count = ::read(fSocket, to, size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) failAsCutOff(deadline);
    if (count == 0) failAsItEnded(deadline);
    to += count;
    size -= static_cast<std::size_t>(count);
  }
}

// The connection failed under a read or a write, as errno tells: by the child's end, or by itself,
// and then the child may live on.
void ChildProcess::failAsCutOff(Clock::time_point deadline) {
  if (errno == EPIPE || errno == ECONNRESET) failAsItEnded(deadline);
  failAsUnreachable();
}

void ChildProcess::failAsUnreachable() {
  const int reason = errno;
  // It finds that nobody asks any more, and clears up what it holds.
  ::close(std::exchange(fSocket, -1));
  const auto deadline = Clock::now() + std::chrono::seconds(2);
  pid_t ended = 0;
  while ((ended = waitpid(fChild, nullptr, WNOHANG)) == 0 && Clock::now() < deadline)
    std::this_thread::sleep_for(1ms);
  if (ended > 0) fChild = -1;
  end();
  throw Error(fName + " cannot be reached: " + std::strerror(reason));
}

void ChildProcess::failAsItEnded(Clock::time_point deadline) {
  int status = 0;
  pid_t ended = 0;
  // It has hung up, and is on its way out; one that stays all the same is not waited for.
  while ((ended = waitpid(fChild, &status, WNOHANG)) == 0 || (ended < 0 && errno == EINTR)) {
    if (Clock::now() >= deadline) failAsTooSlow();
    std::this_thread::sleep_for(1ms);
  }
  if (ended < 0) failAsUnreachable();
  fChild = -1;
  end();
  throw Error(fName + describeEnd(status));
}

void ChildProcess::failAsTooSlow() {
  end();
  throw Error(fName + " gave no answer within " + std::to_string(fPatience.count()) +
              (fPatience.count() == 1 ? " second" : " seconds"));
}

}  // namespace hostkit
