#include "crash/SystemCalls.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <map>
#include <stdexcept>

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
enum class Names { Descriptor, Path, PathBehindFolder };

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
      {SYS_write, {"write", Names::Descriptor, Effect::Changes, 2}},
      {SYS_pwrite64, {"pwrite", Names::Descriptor, Effect::Changes, 2}},
      {SYS_writev, {"writev", Names::Descriptor, Effect::Changes}},
      {SYS_ftruncate, {"ftruncate", Names::Descriptor, Effect::Changes}},
      {SYS_fsync, {"fsync", Names::Descriptor, Effect::Changes}},
      {SYS_fdatasync, {"fdatasync", Names::Descriptor, Effect::Changes}},
      {SYS_fchmod, {"fchmod", Names::Descriptor, Effect::Changes}},
      {SYS_fchown, {"fchown", Names::Descriptor, Effect::Changes}},
      {SYS_rename, {"rename", Names::Path, Effect::Changes}},
      {SYS_renameat, {"renameat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_renameat2, {"renameat2", Names::PathBehindFolder, Effect::Changes}},
      {SYS_link, {"link", Names::Path, Effect::Changes}},
      {SYS_linkat, {"linkat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_unlink, {"unlink", Names::Path, Effect::Changes}},
      {SYS_unlinkat, {"unlinkat", Names::PathBehindFolder, Effect::Changes}},
      {SYS_mkdir, {"mkdir", Names::Path, Effect::Changes}},
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

// Page by page, since there may be nothing behind the one in which it ends.
std::string stringAt(pid_t process, unsigned long long address) {
  constexpr std::size_t kPage = 4096;
  std::string text;
  while (text.size() < PATH_MAX) {
    std::array<char, kPage> bytes;
    iovec here{bytes.data(), kPage - address % kPage};
    iovec there{reinterpret_cast<void*>(address), here.iov_len};
    if (process_vm_readv(process, &here, 1, &there, 1, 0) < 0) return text;
    const auto* const end = static_cast<const char*>(std::memchr(bytes.data(), 0, here.iov_len));
    if (end != nullptr)
      return text.append(bytes.data(), static_cast<std::size_t>(end - bytes.data()));
    text.append(bytes.data(), here.iov_len);
    address += here.iov_len;
  }
  return text;
}

class Tracer {
public:
  Tracer(std::string folder, const Fault& fault, Traced& result)
      : fFolder(std::move(folder)), fFault(fault), fResult(result) {}

  // Until the first process, which has stopped itself, has ended.
  void follow(pid_t first) {
    int status = 0;
    waitpid(first, &status, 0);
    constexpr long kOptions = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                              PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    if (!WIFSTOPPED(status) || ptrace(PTRACE_SETOPTIONS, first, 0, kOptions) != 0) {
      kill(first, SIGKILL);
      throw std::runtime_error("programs cannot be traced here");
    }
    fProcesses.push_back(first);
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
    if (event == PTRACE_EVENT_SECCOMP) {
      if (!meet(process)) return;
    } else if (event != 0) {
      unsigned long child = 0;
      ptrace(PTRACE_GETEVENTMSG, process, 0, &child);
      fProcesses.push_back(static_cast<pid_t>(child));
    } else if (WSTOPSIG(status) != SIGSTOP && WSTOPSIG(status) != SIGTRAP) {
      signal = WSTOPSIG(status);
    }
    ptrace(PTRACE_CONT, process, 0, signal);
  }

  // A call that is about to be made. Returns false when it ended everything.
  bool meet(pid_t process) {
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, process, 0, &registers);
    const KnownCall& call = knownCalls().at(static_cast<long>(registers.orig_rax));
    if (!isInFolder(process, call, registers)) return true;
    const std::size_t number = fResult.calls.size();
    fResult.calls.push_back(
        {call.name, effectOf(call, registers), call.lengthArgument == 2 && registers.rdx > 1});
    if (number != fFault.call) return true;
    switch (fFault.kind) {
      case Fault::Kind::None:
        return true;
      case Fault::Kind::End:
        for (const pid_t one : fProcesses)
          kill(one, SIGKILL);
        return false;
      case Fault::Kind::Fail:
        registers.orig_rax = static_cast<unsigned long long>(-1);
        registers.rax = static_cast<unsigned long long>(-fFault.error);
        break;
      case Fault::Kind::Short:
        registers.rdx /= 2;
        break;
    }
    ptrace(PTRACE_SETREGS, process, 0, &registers);
    return true;
  }

  static Effect effectOf(const KnownCall& call, const user_regs_struct& registers) {
    const bool opens = std::string(call.name).rfind("open", 0) == 0;
    const auto flags = call.names == Names::Path ? registers.rsi : registers.rdx;
    return opens && (flags & (O_CREAT | O_TRUNC)) != 0 ? Effect::Changes : call.effect;
  }

  bool isInFolder(pid_t process, const KnownCall& call, const user_regs_struct& registers) const {
    std::string path;
    if (call.names == Names::Descriptor) {
      std::array<char, PATH_MAX> target{};
      const std::string link = "/proc/" + std::to_string(process) + "/fd/" +
                               std::to_string(static_cast<int>(registers.rdi));
      if (readlink(link.c_str(), target.data(), target.size() - 1) < 0) return false;
      path = target.data();
    } else {
      path = stringAt(process, call.names == Names::Path ? registers.rdi : registers.rsi);
      if (!path.empty() && path[0] != '/') return true;  // it runs in the folder
    }
    return path.rfind(fFolder, 0) == 0 || path == fTemporary ||
           path.rfind(fTemporary + "/#", 0) == 0;
  }

  std::string fFolder;
  const std::string fTemporary = "/tmp";  // where tmpfile(3) makes files without a name
  Fault fFault;
  Traced& fResult;
  std::vector<pid_t> fProcesses;
};

}  // namespace

Traced runTraced(const support::Command& command, const Fault& fault) {
  const support::TempDir capture;
  capture.write("in", command.input);
  const int files[3] = {
      support::detail::openOrThrow(capture / "in", O_RDONLY),
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
  for (const int file : files)
    close(file);
  if (child < 0) throw std::runtime_error("cannot fork");
  Traced traced;
  Tracer(command.folder.string(), fault, traced).follow(child);
  traced.finished.out = capture.read("out");
  traced.finished.err = capture.read("err");
  return traced;
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
