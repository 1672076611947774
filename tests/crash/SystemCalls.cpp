#include "crash/SystemCalls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace crash {

namespace {

// Which of a call's arguments names its file.
enum class Names { Descriptor, SecondDescriptor, Path, PathBehindFolder, None };

const std::string kOfProcesses = "(processes)";  // in place of a file's name

struct KnownCall {
  const char* name;
  Names names;
  Effect effect;
  int lengthArgument = -1;
};

const std::map<long, KnownCall>& knownCalls() {
  static const std::map<long, KnownCall> all = {
      {SYS_open, {"open", Names::Path, Effect::Reads}},
      {SYS_openat, {"openat", Names::PathBehindFolder, Effect::Reads}},
      {SYS_read, {"read", Names::Descriptor, Effect::Reads, 2}},
      {SYS_pread64, {"pread", Names::Descriptor, Effect::Reads, 2}},
      {SYS_readv, {"readv", Names::Descriptor, Effect::Reads}},
      {SYS_lseek, {"lseek", Names::Descriptor, Effect::Reads}},
      {SYS_getdents64, {"getdents", Names::Descriptor, Effect::Reads}},
      {SYS_close, {"close", Names::Descriptor, Effect::Reads}},
      {SYS_flock, {"flock", Names::Descriptor, Effect::Reads}},
      {SYS_fcntl, {"fcntl", Names::Descriptor, Effect::Reads}},
      {SYS_dup, {"dup", Names::Descriptor, Effect::Reads}},
      {SYS_dup2, {"dup2", Names::SecondDescriptor, Effect::Reads}},
      {SYS_dup3, {"dup3", Names::SecondDescriptor, Effect::Reads}},
      {SYS_stat, {"stat", Names::Path, Effect::Reads}},
      {SYS_lstat, {"lstat", Names::Path, Effect::Reads}},
      {SYS_fstat, {"fstat", Names::Descriptor, Effect::Reads}},
      {SYS_newfstatat, {"fstatat", Names::PathBehindFolder, Effect::Reads}},
      {SYS_statx, {"statx", Names::PathBehindFolder, Effect::Reads}},
      {SYS_access, {"access", Names::Path, Effect::Reads}},
      {SYS_faccessat, {"faccessat", Names::PathBehindFolder, Effect::Reads}},
      {SYS_faccessat2, {"faccessat2", Names::PathBehindFolder, Effect::Reads}},
      {SYS_readlink, {"readlink", Names::Path, Effect::Reads}},
      {SYS_readlinkat, {"readlinkat", Names::PathBehindFolder, Effect::Reads}},
      {SYS_getcwd, {"getcwd", Names::None, Effect::Reads}},
      {SYS_socketpair, {"socketpair", Names::None, Effect::Reads}},
      {SYS_fork, {"fork", Names::None, Effect::Reads}},
      {SYS_vfork, {"vfork", Names::None, Effect::Reads}},
      {SYS_clone, {"clone", Names::None, Effect::Reads}},
      {SYS_clone3, {"clone3", Names::None, Effect::Reads}},
      {SYS_poll, {"poll", Names::None, Effect::Reads}},
      {SYS_ppoll, {"ppoll", Names::None, Effect::Reads}},
      {SYS_wait4, {"wait4", Names::None, Effect::Reads}},
      {SYS_write, {"write", Names::Descriptor, Effect::Changes, 2}},
      {SYS_pwrite64, {"pwrite", Names::Descriptor, Effect::Changes, 2}},
      {SYS_writev, {"writev", Names::Descriptor, Effect::Changes}},
      {SYS_ftruncate, {"ftruncate", Names::Descriptor, Effect::Changes}},
      {SYS_fsync, {"fsync", Names::Descriptor, Effect::Changes}},
      {SYS_fdatasync, {"fdatasync", Names::Descriptor, Effect::Changes}},
      {SYS_fchmod, {"fchmod", Names::Descriptor, Effect::Changes}},
      {SYS_fchown, {"fchown", Names::Descriptor, Effect::Changes}},
      {SYS_utimensat, {"utimensat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_rename, {"rename", Names::Path, Effect::Changes}},
      {SYS_renameat, {"renameat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_renameat2, {"renameat2", Names::PathBehindFolder, Effect::Changes}},
      {SYS_link, {"link", Names::Path, Effect::Changes}},
      {SYS_linkat, {"linkat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_unlink, {"unlink", Names::Path, Effect::Changes}},
      {SYS_unlinkat, {"unlinkat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_mkdir, {"mkdir", Names::Path, Effect::Changes}},
      {SYS_mkdirat, {"mkdirat", Names::PathBehindFolder, Effect::Changes}},
  };
  return all;
}

// The kernel stops the program at these calls only.
bool stopAtKnownCalls() {
  std::vector<sock_filter> filter;
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
  for (const auto& [number, call] : knownCalls()) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// What a traced process has in its memory, as far as it can be read: page by page, since there may
// be nothing behind one. Ends before `end` where that is among the bytes.
std::string memoryOf(pid_t process, unsigned long long address, std::size_t size,
                     std::optional<char> end = {}) {
  constexpr std::size_t kPage = 4096;
  std::string bytes;
  while (bytes.size() < size) {
    std::array<char, kPage> page;
    iovec here{page.data(), std::min<std::size_t>(size - bytes.size(), kPage - address % kPage)};
    iovec there{reinterpret_cast<void*>(address), here.iov_len};
    if (process_vm_readv(process, &here, 1, &there, 1, 0) < 0) break;
    const auto* const stop =
        end ? static_cast<const char*>(std::memchr(page.data(), *end, here.iov_len)) : nullptr;
    if (stop != nullptr)
      return bytes.append(page.data(), static_cast<std::size_t>(stop - page.data()));
    bytes.append(page.data(), here.iov_len);
    address += here.iov_len;
  }
  return bytes;
}

std::string bytesOf(pid_t process, const iovec* list, std::size_t count) {
  const auto address = reinterpret_cast<unsigned long long>(list);
  const std::string memory = memoryOf(process, address, count * sizeof(iovec));
  std::string bytes;
  for (std::size_t at = 0; at < memory.size(); at += sizeof(iovec)) {
    iovec part{};
    std::memcpy(&part, memory.data() + at, sizeof(part));
    bytes += memoryOf(process, reinterpret_cast<unsigned long long>(part.iov_base), part.iov_len);
  }
  return bytes;
}

std::string ofDescriptor(pid_t process, const char* kind, unsigned long long descriptor) {
  return "/proc/" + std::to_string(process) + "/" + kind + "/" +
         std::to_string(static_cast<int>(descriptor));
}

std::string nameOf(pid_t process, unsigned long long descriptor) {
  std::error_code gone;
  return std::filesystem::read_symlink(ofDescriptor(process, "fd", descriptor), gone).string();
}

std::uint64_t positionOf(pid_t process, unsigned long long descriptor) {
  std::ifstream info(ofDescriptor(process, "fdinfo", descriptor));
  std::string word;
  std::uint64_t position = 0;
  info >> word >> position;
  return position;
}

bool isOfSocket(const Call& call) {
  return call.path.rfind("socket:", 0) == 0;
}

// A call that is about to be made, with all that it says of itself.
class Meeting {
public:
  Meeting(pid_t process, std::string folder, const user_regs_struct& registers)
      : fProcess(process),
        fFolder(std::move(folder)),
        fRegisters(registers),
        fKnown(knownCalls().at(static_cast<long>(registers.orig_rax))) {}

  Call call() const {
    Call call;
    call.name = fKnown.name;
    call.effect = fKnown.effect;
    call.transfers = fKnown.lengthArgument == 2 && fRegisters.rdx > 1;
    name(call);
    const bool isOfDescriptor =
        call.name == "fstatat" && memoryOf(fProcess, fRegisters.rsi, 1, '\0').empty();
    if (isOfDescriptor) call.name = "fstat";            // as the C library asks for it
    if (isOfSocket(call)) call.effect = Effect::Reads;  // nothing of it stays
    const auto starts = [&](const char* word) { return call.name.rfind(word, 0) == 0; };
    if (starts("open")) {
      const auto flags = fKnown.names == Names::Path ? fRegisters.rsi : fRegisters.rdx;
      call.creates = (flags & O_CREAT) != 0;
      call.empties = (flags & O_TRUNC) != 0;
      if (call.creates || call.empties) call.effect = Effect::Changes;
    } else if (call.name == "ftruncate") {
      call.offset = fRegisters.rsi;
    } else if (call.name == "pwrite") {
      call.offset = fRegisters.r10;
    } else if (starts("write")) {
      call.offset = positionOf(fProcess, fRegisters.rdi);
    }
    if (call.name == "write" || call.name == "pwrite") {
      call.bytes = memoryOf(fProcess, fRegisters.rsi, fRegisters.rdx);
    } else if (call.name == "writev") {
      call.bytes =
          bytesOf(fProcess, reinterpret_cast<const iovec*>(fRegisters.rsi), fRegisters.rdx);
    }
    return call;
  }

private:
  void name(Call& call) const {
    const bool isNaming = call.name.rfind("rename", 0) == 0 || call.name.rfind("link", 0) == 0;
    const auto here = static_cast<unsigned long long>(AT_FDCWD);
    switch (fKnown.names) {
      case Names::Descriptor:
        call.path = nameOf(fProcess, fRegisters.rdi);
        break;
      case Names::SecondDescriptor:
        call.path = nameOf(fProcess, fRegisters.rsi);
        break;
      case Names::None:
        call.path = kOfProcesses;
        break;
      case Names::Path:
        call.path = path(here, fRegisters.rdi);
        if (isNaming) call.to = path(here, fRegisters.rsi);
        break;
      case Names::PathBehindFolder:
        call.path = path(fRegisters.rdi, fRegisters.rsi);
        if (isNaming) call.to = path(fRegisters.rdx, fRegisters.r10);
        break;
    }
  }
  std::string path(unsigned long long folder, unsigned long long address) const {
    const std::string name = memoryOf(fProcess, address, PATH_MAX, '\0');
    const bool isHere = static_cast<int>(folder) == AT_FDCWD;
    const std::filesystem::path base = isHere ? fFolder : nameOf(fProcess, folder);
    const std::string path = (base / name).lexically_normal().string();
    return path.size() > 1 && path.back() == '/' ? path.substr(0, path.size() - 1) : path;
  }

  pid_t fProcess;
  std::string fFolder;  // in which the program runs
  user_regs_struct fRegisters;
  const KnownCall& fKnown;
};

class Tracer {
public:
  Tracer(std::string folder, std::vector<std::string> streams, const Fault& fault, Traced& result)
      : fFolder(std::move(folder)), fStreams(std::move(streams)), fFault(fault), fResult(result) {}

  // Until the first process, which has stopped itself, has ended.
  void follow(pid_t first) {
    int status = 0;
    waitpid(first, &status, 0);
    constexpr long kOptions = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                              PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    if (!WIFSTOPPED(status) || ptrace(PTRACE_SETOPTIONS, first, 0, kOptions) != 0) {
      kill(first, SIGKILL);
      throw std::runtime_error("programs cannot be traced here");
    }
    ptrace(PTRACE_CONT, first, 0, 0);
    for (;;) {
      const pid_t process = waitpid(-1, &status, __WALL);
      if (process < 0) return;
      if (WIFSTOPPED(status)) {
        goOn(process, status);
      } else if (process == first) {
        fResult.finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
    }
  }

private:
  void goOn(pid_t process, int status) {
    const int event = status >> 16;
    long signal = 0;
    Process& known = knownProcess(process);
    if (event == PTRACE_EVENT_SECCOMP) {
      if (fHasBegun && !meet(known)) return;
    } else if (event == PTRACE_EVENT_EXEC) {
      fHasBegun = true;
    } else if (event != 0) {
      unsigned long child = 0;
      ptrace(PTRACE_GETEVENTMSG, process, 0, &child);
      knownProcess(static_cast<pid_t>(child));
    } else if (WSTOPSIG(status) != SIGSTOP && WSTOPSIG(status) != SIGTRAP) {
      signal = WSTOPSIG(status);
    }
    ptrace(PTRACE_CONT, process, 0, signal);
  }

  struct Process {
    pid_t id;
    std::size_t number;
    std::size_t calls;
  };
  // A new one is told of by its parent or by itself, whichever comes first.
  Process& knownProcess(pid_t id) {
    const auto found = std::find_if(fProcesses.begin(), fProcesses.end(),
                                    [&](const Process& one) { return one.id == id; });
    if (found != fProcesses.end()) return *found;
    fProcesses.push_back({id, fProcesses.size(), 0});
    return fProcesses.back();
  }
  void endAll() const {
    for (const Process& one : fProcesses)
      kill(one.id, SIGKILL);
  }

  bool isFaulty(const Call& call) {
    if (fFault.kind == Fault::Kind::None) return false;
    const bool isIt = call.number == fFault.call;
    if (fFault.kind != Fault::Kind::Last) return isIt;
    if (isIt) fLasting = call;
    return fLasting && call.name == fLasting->name && call.path == fLasting->path;
  }

  // Returns false when it ended everything.
  bool meet(Process& process) {
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, process.id, 0, &registers);
    Call call = Meeting(process.id, fFolder, registers).call();
    if (!isFollowed(call.path)) return true;
    call.number = {process.number, process.calls++};
    const bool isFaulty = this->isFaulty(call);
    call.failed = isFaulty && fFault.kind != Fault::Kind::Short;
    if (isFaulty && fFault.kind == Fault::Kind::Short) call.bytes.resize(call.bytes.size() / 2);
    fResult.calls.push_back(std::move(call));
    if (fResult.calls.size() == kMostCalls) {
      endAll();
      throw std::runtime_error("the program goes on for ever");
    }
    if (!isFaulty) return true;
    switch (fFault.kind) {
      case Fault::Kind::None:
        return true;
      case Fault::Kind::End:
        endAll();
        return false;
      case Fault::Kind::Fail:
      case Fault::Kind::Last:
        registers.orig_rax = static_cast<unsigned long long>(-1);
        registers.rax = static_cast<unsigned long long>(-fFault.error);
        break;
      case Fault::Kind::Short:
        registers.rdx /= 2;
        break;
    }
    ptrace(PTRACE_SETREGS, process.id, 0, &registers);
    return true;
  }

  bool isFollowed(const std::string& path) const {
    const auto starts = [&](const std::string& word) { return path.rfind(word, 0) == 0; };
    return path == fFolder || starts(fFolder + "/") || path == fTemporary ||
           starts(fTemporary + "/#") || starts("socket:") || path == kOfProcesses ||
           std::find(fStreams.begin(), fStreams.end(), path) != fStreams.end();
  }

  static constexpr std::size_t kMostCalls = 20000;
  std::string fFolder;
  std::vector<std::string> fStreams;
  const std::string fTemporary = "/tmp";  // where tmpfile(3) makes files without a name
  Fault fFault;
  Traced& fResult;
  bool fHasBegun = false;  // what comes before is this program's own
  std::deque<Process> fProcesses;
  std::optional<Call> fLasting;
};

}  // namespace

namespace {

// What a program is to read, in a pipe, which holds so little as the tests have.
int openInput(const std::string& bytes) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  const ssize_t written = write(ends[1], bytes.data(), bytes.size());
  close(ends[1]);
  if (written != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("the pipe is full");
  return ends[0];
}

}  // namespace

Traced runTraced(const support::Command& command, const Fault& fault) {
  const support::TempDir capture;
  const int files[3] = {
      openInput(command.input),
      support::detail::openOrThrow(capture / "out", O_WRONLY | O_CREAT),
      support::detail::openOrThrow(capture / "err", O_WRONLY | O_CREAT),
  };
  const support::detail::Prepared prepared(command);
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, 0, 0);
    raise(SIGSTOP);
    if (!stopAtKnownCalls()) _exit(126);
    prepared.become(files);
  }
  const std::string input = nameOf(getpid(), static_cast<unsigned>(files[0]));
  for (const int file : files)
    close(file);
  if (child < 0) throw std::runtime_error("cannot fork");
  Traced traced;
  Tracer(command.folder.string(), {input, (capture / "out").string()}, fault, traced).follow(child);
  traced.finished.out = capture.read("out");
  traced.finished.err = capture.read("err");
  return traced;
}

std::vector<std::size_t> chosen(const std::vector<Call>& calls, Sweep sweep) {
  constexpr std::size_t kStep = 25;
  std::set<std::pair<std::string, bool>> kinds;
  std::vector<std::size_t> places;
  for (std::size_t n = 0; n < calls.size(); ++n) {
    const bool isFirst = kinds.emplace(calls[n].name, isOfSocket(calls[n])).second;
    const bool isTaken =
        sweep == Sweep::All || (sweep == Sweep::Changes && calls[n].effect == Effect::Changes);
    if (isTaken || isFirst || n % kStep == 0) places.push_back(n);
  }
  return places;
}

std::vector<Fault> faultsOf(const std::vector<Call>& calls, std::size_t place,
                            const std::vector<int>& errors, bool all) {
  const Call& call = calls[place];
  std::vector<Fault> faults;
  for (const int error : errors)
    faults.push_back({Fault::Kind::Fail, call.number, error});
  const auto asksTheSame = [&](const Call& other) {
    return other.name == call.name && other.path == call.path;
  };
  const auto here = calls.begin() + static_cast<std::ptrdiff_t>(place);
  const bool isAskedAgain = std::any_of(here + 1, calls.end(), asksTheSame);
  const bool isFirst = std::none_of(calls.begin(), here, asksTheSame);
  if (isAskedAgain && (isFirst || all))
    faults.push_back({Fault::Kind::Last, call.number, errors.front()});
  if (call.transfers) faults.push_back({Fault::Kind::Short, call.number, 0});
  return faults;
}

std::string describe(const Call& call, const Fault& fault) {
  const char* const how = fault.kind == Fault::Kind::Short  ? " cut short"
                          : fault.kind == Fault::Kind::Last ? " failing from then on"
                          : fault.kind == Fault::Kind::End  ? " never made"
                                                            : " failing";
  return call.name + " " + call.path + ", call " + std::to_string(call.number.call) +
         " of process " + std::to_string(call.number.process) + how + ", error " +
         std::to_string(fault.error);
}

bool canTrace() {
  try {
    const support::TempDir folder;
    folder.write("file", "bytes");
    const Traced traced = runTraced({{"cat", "file"}, {}, folder.path(), {}});
    return traced.finished.out == "bytes" && !traced.calls.empty();
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace crash
