#include <string>

#include "agent_process/supervision.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "common/crash_files.h"
#include "common/detached.h"
#include "host/agent_listener.h"
#include "host/host_end.h"
#include "host/inspect_pipe.h"
#include "host/stdin_reader.h"
#include "host/user_command.h"
#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/owned.h"
#include "platform/process_control.h"
#include "setup/command_line.h"
#include "toolserver/tool_server.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t parkMs = 0xFFFFFFFF;

void logFailure(const std::string& text) { queueDebugLog(text, "error"); }

int runHost(const Arguments& arguments) {
  leaveCrashFiles();
  takeStandardStreams();  // before any thread
  startEndGuard();        // before all others
  setDetachedReporter(logFailure);
  setAgentListener(agentFollower());
  if (isStartedByBrowser(arguments)) limitFramesForBrowser();
  if (!runDetached("stdin reader", [] { runStdinReader(); })) return 1;
  startToolServer();
  runInspectPipeServer();    // returns at once when another host has the pipe: that is no fault
  for (;;) sleepMs(parkMs);  // the reader ends the process
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char** argv) {
  namespace host = media::win::chrome_inspect;
  host::prepareProcess();
  const host::Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (host::isUserCommand(arguments, [] { return host::isConsole(host::standardInput()); })) {
    host::exitProcess(static_cast<unsigned>(host::runUserCommand(arguments)));
  }
  return host::runHost(arguments);
}
