#include "doctor/place_findings.h"

#include <array>

#include "app_ipc/instance_discovery.h"
#include "common/paths.h"
#include "common/product_names.h"
#include "mcp/pipe_road.h"
#include "platform/crypto.h"
#include "platform/files.h"
#include "platform/sockets.h"
#include "text/wide.h"
#include "toolserver/drops.h"
#include "toolserver/tool_server.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t pipeAnswerMs = 1000;

bool isPortFree(std::uint16_t port) {
  OwnedSocket socket;
  return openSocket(socket) && bindLoopback(socket, port);
}

void countDrops(const std::wstring& folder, FolderState& state) {
  state.dropsReadable = visitFolder(folder, [&](const FolderEntry& entry) {
    if (!entry.isRegular) return true;
    ++state.files;
    if (isRecentDrop(entry.ageMs)) ++state.recent;
    return true;
  });
}

std::string joined(const std::vector<std::uint16_t>& ports) {
  std::string text;
  for (const std::uint16_t port : ports) text += (text.empty() ? "" : ", ") + std::to_string(port);
  return text;
}

}  // namespace

ToolServerState lookAtToolServer() {
  ToolServerState state;
  std::array<unsigned char, 32> bytes{};
  state.hasRandom = randomBytes(bytes.data(), bytes.size());
  if (!startSockets()) return state;
  for (std::uint16_t port = firstToolServerPort; port <= lastToolServerPort; ++port) {
    if (isPortFree(port)) {
      state.freePort = port;
      break;
    }
    state.taken.push_back(port);
  }
  return state;
}

FolderState lookAtFolder() {
  FolderState state;
  const std::wstring folder = hostDataFolderPath();
  const std::wstring drops = joinPath(folder, dropsFolderName);
  FileFacts facts;
  state.folder = toUtf8(folder);
  state.drops = toUtf8(drops);
  if (folder.empty() || !isExistingFolder(folder)) return state;
  state.exists = true;
  state.mayWrite = mayAddFiles(folder);
  state.onDrive = isDrivePath(folder) && !finalFolderPath(folder).empty();
  if (!isExistingFolder(drops)) return state;
  state.dropsIsLink = !folderFacts(drops, facts) || facts.isLink;
  if (!state.dropsIsLink) countDrops(drops, state);
  return state;
}

CrashState lookAtCrashes() {
  const std::wstring folder = crashFolderPath();
  return {toUtf8(folder), crashFilesIn(folder)};
}

ApplicationState lookAtApplication() {
  ApplicationState state;
  state.port = discoverAppInstance().port;
  OwnedSocket socket;
  state.answers = state.port != 0 && startSockets() && openSocket(socket) &&
                  connectLoopback(socket, static_cast<std::uint16_t>(state.port));
  return state;
}

PipeLook lookAtPipe() {
  const PipeState state = probePipe(inspectPipeName);
  return {state, state != PipeState::absent && doesPipeAnswer(pipeAnswerMs)};
}

Finding judgeToolServer(const ToolServerState& state) {
  Finding finding{"toolServer", "tool server"};
  finding.facts = {{"freePort", std::int64_t{state.freePort}},
                   {"taken", static_cast<std::int64_t>(state.taken.size())}};
  if (state.freePort == 0) {
    finding.health = Health::problem;
    finding.text = "no port from " + std::to_string(firstToolServerPort) + " to " +
                   std::to_string(lastToolServerPort) +
                   " is free: a host that starts now has no browser tools and takes no files";
    finding.remedy = "end the programs that listen on them; each browser profile has one host";
  } else if (!state.hasRandom) {
    finding.health = Health::problem;
    finding.text = "the system returns no random bytes, so there is no session token";
    finding.remedy = "restart Windows; if that does not help, repair it";
  } else {
    finding.text = "can listen on port " + std::to_string(state.freePort);
    if (!state.taken.empty()) {
      finding.text += "; taken, by other hosts perhaps: " + joined(state.taken);
    }
  }
  return finding;
}

Finding judgeFolder(const FolderState& state) {
  Finding finding{"folder", "work folder"};
  finding.facts = {{"path", state.folder}, {"exists", state.exists}};
  finding.text = state.folder;
  if (state.folder.empty()) {
    finding.health = Health::problem;
    finding.text = "the system names no folder for application data";
    finding.remedy = "repair the Windows user profile";
  } else if (!state.exists) {
    finding.text += ", made when it is needed";
  } else if (!state.mayWrite) {
    finding.health = Health::problem;
    finding.text += " cannot be written to";
    finding.remedy = "give your account the right to write there";
  } else if (!state.onDrive) {
    finding.health = Health::note;
    finding.text += " is no folder of this machine: pasted files cannot be shown in the panel";
    finding.remedy = "keep the application data folder on a local drive";
  }
  return finding;
}

Finding judgeDrops(const FolderState& state) {
  Finding finding{"drops", "pasted files"};
  finding.facts = {{"path", state.drops},
                   {"files", static_cast<std::int64_t>(state.files)},
                   {"recent", static_cast<std::int64_t>(state.recent)}};
  finding.health = Health::problem;
  if (state.dropsIsLink) {
    finding.text = state.drops + " is a link, so files are refused";
    finding.remedy = "delete the link; the host makes a folder";
  } else if (!state.dropsReadable) {
    finding.text = state.drops + " cannot be read, so files are refused";
    finding.remedy = "give your account the right to read and write there";
  } else if (state.recent >= maxRecentDrops) {
    finding.text = std::to_string(state.recent) + " files of the last day, so no more are taken";
    finding.remedy = "delete files from " + state.drops;
  } else {
    finding.health = Health::ok;
    finding.text = std::to_string(state.files) + " files, " + std::to_string(state.recent) +
                   " of the last day (at most " + std::to_string(maxRecentDrops) + ")";
  }
  return finding;
}

Finding judgeCrashes(const CrashState& state) {
  Finding finding{"crashes", "crashes"};
  const CrashFile last = state.files.empty() ? CrashFile() : state.files.front();
  finding.facts = {{"count", static_cast<std::int64_t>(state.files.size())},
                   {"folder", state.folder},
                   {"last", toUtf8(last.name)},
                   {"version", last.version},
                   {"when", last.when}};
  if (state.files.empty()) {
    finding.text = "none is on record";
    return finding;
  }
  finding.health = Health::note;
  finding.text = "version " + last.version + " crashed on " + last.when + ": " +
                 toUtf8(joinPath(toWide(state.folder), last.name));
  finding.remedy =
      "send that file to those who maintain the program, if you like; pieces of chats may be in it";
  return finding;
}

Finding judgeApplication(const ApplicationState& state) {
  Finding finding{"application", "desktop application"};
  const std::string port = std::to_string(state.port);
  finding.facts = {
      {"running", state.port != 0}, {"port", std::int64_t{state.port}}, {"answers", state.answers}};
  if (state.answers) {
    finding.text = "runs and takes commands on port " + port;
  } else if (state.port != 0) {
    finding.health = Health::problem;
    finding.text = "announces itself on port " + port + ", but does not answer there";
    finding.remedy = "restart the desktop application";
  } else {
    finding.health = Health::note;
    finding.text = "does not run; commands that need its window fail";
    finding.remedy = "start the desktop application when you need them";
  }
  return finding;
}

Finding judgePipe(const PipeLook& look) {
  static constexpr const char* words[] = {"absent", "listening", "busy", "unknown"};
  Finding finding{"pipe", "inspect pipe"};
  finding.facts = {{"state", std::string(words[static_cast<std::size_t>(look.state)])},
                   {"answers", look.answers}};
  if (look.answers) {
    finding.text = "a host serves it and answers: MCP clients reach the browser";
  } else if (look.state == PipeState::absent) {
    finding.text = "its name is free, the next host that starts serves it";
  } else if (look.state == PipeState::busy) {
    finding.text = "a host serves a client on it";
  } else if (look.state == PipeState::listening) {
    finding.health = Health::note;
    finding.text = "a host serves it, but does not answer";
    finding.remedy = "close the assistant's side panel and open it again";
  } else {
    finding.health = Health::note;
    finding.text = "no host answers, and the system does not report whether its name is free";
  }
  return finding;
}

}  // namespace media::win::chrome_inspect
