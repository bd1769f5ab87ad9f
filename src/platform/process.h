#pragma once

#include <cstdint>
#include <string>

#include "platform/byte_stream.h"
#include "platform/owned.h"

// Child processes without a window. Windows side: CreateProcessW with a handle list.
namespace media::win::chrome_inspect {

// A process HANDLE on Windows; elsewhere a record of the child that its owners share. In both cases
// the exit code can be asked for as long as somebody owns the process, whoever waited for it.
struct ProcessTraits {
  using Raw = std::intptr_t;
  static Raw none() { return 0; }
  static bool valid(Raw raw) { return raw != 0 && raw != -1; }
  static void close(Raw raw);
};
using OwnedProcess = Owned<ProcessTraits>;

enum class SpawnResult { ok, noAttributeList, failed };

// Starts a hidden child from `commandLine` (its first token, in quotes, is the executable) in
// `folder` (the caller's own when empty). The child inherits a null standard input, `output` as its
// standard output and error, and nothing else. It is created in a job of its own that ends it when
// this process ends, however that happens; what the child itself starts is left out of the job.
// `failed` sets `systemError` (GetLastError, 267 for a folder that is not there; or errno on
// POSIX). `output` stays the caller's. May be called from several threads.
// POSIX: no job; tests must end the child themselves when they end the host hard. Quotes in the
// command line are only taken as the host writes them, without escapes.
SpawnResult spawnHidden(const std::wstring& commandLine, const std::wstring& folder,
                        StreamId output, OwnedProcess& process, std::uint32_t& systemError);

// Whether the executable at `path` can be started, without running any of its code: a suspended,
// hidden process is created and ended at once. False sets `systemError` (GetLastError, or errno).
// Blocks as long as the system takes, and up to 2 s for the end of that process. POSIX: only looks
// whether the file may be executed.
bool probeProcessStart(const std::wstring& path, std::uint32_t& systemError);

// A second owner of the same process, for a thread that polls it while another may close its own.
OwnedProcess duplicateProcess(const OwnedProcess& process);

// Waits up to `timeoutMs` (0 only looks) for the process to end; true when it has. Tested by the
// wait and not by the exit code: 259 is a code like any other.
bool waitForExit(const OwnedProcess& process, std::uint32_t timeoutMs);

// The code of a process that has ended; 0 when the system does not report it. POSIX: its low 8
// bits, or 128 and the signal's number.
std::uint32_t exitCodeOf(const OwnedProcess& process);

// Whether a process with this id runs. Ids are given to other processes again, so it may be a
// stranger.
bool isProcessRunning(std::uint32_t processId);

// Asks the system to end the process with exit code 0, without waiting. POSIX: SIGKILL.
void terminateProcess(const OwnedProcess& process);

}  // namespace media::win::chrome_inspect
