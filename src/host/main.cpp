#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "agent_process/supervision.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "common/crash_files.h"
#include "common/detached.h"
#include "common/product_names.h"
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

// Throws when the host cannot start. Whatever else fails leaves a host that has less to offer.
[[noreturn]] void runHost(const Arguments& arguments) {
  runContained("crash files", leaveCrashFiles);
  takeStandardStreams();  // before any thread
  startEndGuard();        // before all others
  setDetachedReporter(logFailure);
  setAgentListener(agentFollower());
  if (isStartedByBrowser(arguments)) limitFramesForBrowser();
  startStdinReader();
  runContained("tool server", startToolServer);
  // Returns at once when another host has the pipe: that is no fault.
  runContained("inspect pipe", [] { runInspectPipeServer(); });
  for (;;) sleepMs(parkMs);  // the reader ends the process
}

void run(const Arguments& arguments) {
  if (!isUserCommand(arguments, [] { return isConsole(standardInput()); })) runHost(arguments);
  exitProcess(static_cast<unsigned>(runUserCommand(arguments)));
}

// Takes no memory, of which there may be none.
[[noreturn]] void giveUp(std::string_view reason) {
  for (const std::string_view part :
       {programName, std::string_view(": "), reason, std::string_view("\n")}) {
    writeText(standardError(), part);
  }
  exitProcess(exitFailure);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char** argv) {
  namespace host = media::win::chrome_inspect;
  host::prepareProcess();
  try {
    host::run(host::Arguments(argv + (argc > 0 ? 1 : 0), argv + argc));
  } catch (const std::bad_alloc&) {
    host::giveUp("out of memory");
  } catch (const std::exception& failure) {
    host::giveUp(failure.what());
  }
}
