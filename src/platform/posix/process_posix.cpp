#include "platform/process.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>  // IWYU pragma: keep
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <vector>

#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/posix/command_line_posix.h"
#include "platform/posix/descriptor_posix.h"
#include "platform/posix/path_text_posix.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

// What ProcessTraits::Raw points to. As with a process handle of Windows the exit code can be asked
// for as long as anybody owns the process: only the last owner reaps it.
struct Child {
  pid_t id = 0;           // not used again by the system before it is reaped
  OwnedDescriptor pidfd;  // readable once the process has ended
  std::atomic<int> owners = 1;
};

Child& childOf(ProcessTraits::Raw raw) { return *reinterpret_cast<Child*>(raw); }

Child& childOf(const OwnedProcess& process) { return childOf(process.get()); }

// False while the process runs.
bool exitStatus(const Child& child, int flags, siginfo_t& status) {
  status = {};
  const auto id = static_cast<id_t>(child.id);
  return retryInterrupted([&] { return waitid(P_PID, id, &status, WEXITED | WNOHANG | flags); }) ==
             0 &&
         status.si_pid != 0;
}

// The file actions and attributes of one posix_spawn call.
class SpawnPlan {
 public:
  SpawnPlan() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  // Each step returns an errno, 0 when it went well.
  int planStreams(int output) {
    int error = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0) error = posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    if (error == 0) error = posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
    // Ours close by themselves; our own starter may have left us others.
    if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    return error;
  }

  int planFolder(const std::string& folder) {
    if (folder.empty()) return 0;
    return posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
  }

  // We ignore SIGPIPE; a program that we start expects to die of it.
  int planSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    int error = posix_spawnattr_setsigmask(&attributes_, &signals);
    sigaddset(&signals, SIGPIPE);
    if (error == 0) error = posix_spawnattr_setsigdefault(&attributes_, &signals);
    if (error != 0) return error;
    return posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }

  int start(const std::vector<std::string>& words, pid_t& id) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return posix_spawnp(&id, arguments.front(), &actions_, &attributes_, arguments.data(), environ);
  }

 private:
  posix_spawn_file_actions_t actions_ = {};
  posix_spawnattr_t attributes_ = {};
};

int startChild(const std::wstring& commandLine, const std::wstring& folder, int output, pid_t& id) {
  const std::vector<std::string> words = splitCommandLine(commandLine);
  if (words.empty()) return EINVAL;
  SpawnPlan plan;
  int error = plan.planStreams(output);
  if (error == 0) error = plan.planFolder(toUtf8(folder));
  if (error == 0) error = plan.planSignals();
  return error == 0 ? plan.start(words, id) : error;
}

// The C library's own declaration of this call cannot be used from C++ everywhere.
OwnedDescriptor openPidfd(pid_t id) {
  return awayFromStandardStreams(
      OwnedDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, id, 0))));
}

void killAndReap(pid_t id) {
  ::kill(id, SIGKILL);
  (void)retryInterrupted([id] { return ::waitpid(id, nullptr, 0); });
}

}  // namespace

void ProcessTraits::close(Raw raw) {
  Child& child = childOf(raw);
  if (child.owners.fetch_sub(1) > 1) return;
  siginfo_t status;
  (void)exitStatus(child, 0, status);  // one that still runs is reaped when we ourselves have ended
  delete &child;
}

SpawnResult spawnHidden(const std::wstring& commandLine, const std::wstring& folder,
                        StreamId output, OwnedProcess& process, std::uint32_t& systemError) {
  auto child = std::make_unique<Child>();  // first, as then nothing has been started
  const int error = startChild(commandLine, folder, static_cast<int>(output), child->id);
  if (error != 0) {
    systemError = static_cast<std::uint32_t>(error);
    return SpawnResult::failed;
  }
  child->pidfd = openPidfd(child->id);
  if (!child->pidfd) {
    systemError = static_cast<std::uint32_t>(errno);
    killAndReap(child->id);
    return SpawnResult::failed;
  }
  process.reset(reinterpret_cast<ProcessTraits::Raw>(child.release()));
  return SpawnResult::ok;
}

bool probeProcessStart(const std::wstring& path, std::uint32_t& systemError) {
  if (::access(pathText(path).c_str(), X_OK) == 0) return true;
  systemError = static_cast<std::uint32_t>(errno);
  return false;
}

OwnedProcess duplicateProcess(const OwnedProcess& process) {
  if (!process) return OwnedProcess();
  childOf(process).owners.fetch_add(1);
  return OwnedProcess(process.get());
}

bool waitForExit(const OwnedProcess& process, std::uint32_t timeoutMs) {
  if (!process) return false;
  const std::uint64_t deadline = tickCountMs() + timeoutMs;
  for (;;) {
    const std::uint64_t now = tickCountMs();
    const std::uint64_t rest = deadline > now ? deadline - now : 0;
    pollfd ended = {childOf(process).pidfd.get(), POLLIN, 0};
    const int ready = ::poll(&ended, 1, static_cast<int>(std::min<std::uint64_t>(rest, INT_MAX)));
    if (ready > 0) return true;
    if (ready == 0 && tickCountMs() >= deadline) return false;
    if (ready < 0 && errno != EINTR) return false;
  }
}

std::uint32_t exitCodeOf(const OwnedProcess& process) {
  siginfo_t status;
  if (!process || !exitStatus(childOf(process), WNOWAIT, status)) return 0;
  constexpr int signalBase = 128;  // as shells report it
  return static_cast<std::uint32_t>(status.si_code == CLD_EXITED ? status.si_status
                                                                 : signalBase + status.si_status);
}

bool isProcessRunning(std::uint32_t processId) {
  // A process of somebody else may not be signalled, but is there.
  return ::kill(static_cast<pid_t>(processId), 0) == 0 || errno == EPERM;
}

void terminateProcess(const OwnedProcess& process) {
  if (process) (void)::kill(childOf(process).id, SIGKILL);
}

}  // namespace media::win::chrome_inspect
