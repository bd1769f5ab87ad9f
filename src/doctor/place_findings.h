#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/crash_files.h"
#include "doctor/finding.h"
#include "platform/named_pipe.h"

// What the host itself needs of the machine: the tool server's ports, the inspect pipe's name, its
// folder; what crashes have left there; and the desktop application, which it finds by a file.
namespace media::win::chrome_inspect {

struct ToolServerState {
  std::vector<std::uint16_t> taken;  // ports before the first free one
  std::uint16_t freePort = 0;        // 0: none is
  bool hasRandom = false;            // for the session token
};

struct FolderState {
  std::string folder;  // empty: the system names none
  bool exists = false;
  bool mayWrite = false;
  bool onDrive = false;  // of this machine; files elsewhere are not served
  std::string drops;
  bool dropsIsLink = false;
  bool dropsReadable = true;
  std::size_t files = 0;   // in the drops folder
  std::size_t recent = 0;  // of them, no older than a day
};

struct CrashState {
  std::string folder;
  std::vector<CrashFile> files;  // newest first
};

struct ApplicationState {
  std::uint32_t port = 0;  // 0: none announces itself
  bool answers = false;    // takes connections there
};

struct PipeLook {
  PipeState state = PipeState::unknown;
  bool answers = false;  // a host serves it, and refuses a request that it does not pass on
};

// These look, and change nothing: a port is bound for a moment, but nobody can connect to it.
ToolServerState lookAtToolServer();
FolderState lookAtFolder();
CrashState lookAtCrashes();
ApplicationState lookAtApplication();
PipeLook lookAtPipe();

// These are pure.
Finding judgeToolServer(const ToolServerState& state);
Finding judgeFolder(const FolderState& state);
Finding judgeDrops(const FolderState& state);
Finding judgeCrashes(const CrashState& state);
Finding judgeApplication(const ApplicationState& state);
Finding judgePipe(const PipeLook& look);

}  // namespace media::win::chrome_inspect
