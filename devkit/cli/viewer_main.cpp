// Stands in for the desktop program's command line in launch tests and in the demo. It takes
// exactly the command line that the host gives, serves the agent's paths on 127.0.0.1 and never
// ends by itself. viewer_behaviour.h lists what tests can change.

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "text/leaked.h"
#include "viewer_answers.h"
#include "viewer_behaviour.h"
#include "viewer_system.h"

namespace viewer_cli {
namespace {

constexpr int exitPortTaken = 1;
constexpr int exitWrongCommand = 64;

constexpr std::string_view beforePort =
    " --no-gui --log-level trace llm agent --serve --host 127.0.0.1 --port ";
constexpr std::string_view afterPort = " --consent-ui stream";

// 0 when the command line is not, to the last blank, the one that the host gives.
std::uint16_t portOf(std::string_view command) {
  if (!command.starts_with(beforePort) || !command.ends_with(afterPort)) return 0;
  command.remove_prefix(beforePort.size());
  if (command.size() <= afterPort.size()) return 0;
  command.remove_suffix(afterPort.size());
  std::uint16_t port = 0;
  const char* end = command.data() + command.size();
  const auto [stopped, error] = std::from_chars(command.data(), end, port);
  return error == std::errc() && stopped == end ? port : std::uint16_t{0};
}

int serve(const Behaviour& behaviour, std::uint16_t port) {
  const std::optional<Socket> listener = listenOn(port);
  if (!listener) {
    std::fprintf(stderr, "port %u is taken\n", static_cast<unsigned>(port));
    return exitPortTaken;
  }
  while (const std::optional<Socket> connection = acceptFrom(*listener)) {
    const bool started = startThread([connection = *connection, &behaviour, port] {
      serveConnection(connection, behaviour, port);
    });
    if (!started) closeSocket(*connection);
  }
  return 1;
}

int run(int argc, char** argv) {
  static const auto& behaviour =
      media::win::chrome_inspect::leaked<Behaviour>(readBehaviour());  // threads may outlive us
  const std::string command = commandTail(argc, argv);
  writeReport(behaviour, command);
  if (behaviour.exitCode) return static_cast<int>(*behaviour.exitCode);
  const std::uint16_t port = portOf(command);
  if (port == 0) {
    std::fprintf(stderr, "unexpected command line:%s\n", command.c_str());
    return exitWrongCommand;
  }
  if (!prepareSystem()) return 1;
  printOutput(behaviour, port);
  return serve(behaviour, port);
}

}  // namespace
}  // namespace viewer_cli

int main(int argc, char** argv) { return viewer_cli::run(argc, argv); }
