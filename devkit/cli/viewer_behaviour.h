// What tests can change about the stand-in, all through environment variables, because its command
// line is fixed:
//
//   MORVA_CLI_REPORT=FILE          append one line of JSON per start: "pid", "command" (all after
//                                  the program's name), "folder" (current directory), "standard"
//                                  (what the three streams are) and "inherited" (every handle or
//                                  descriptor that the process was given)
//   MORVA_CLI_EXIT=N               end at once with exit code N
//   MORVA_CLI_LINES=N              print N lines, "line 1" to "line N"
//   MORVA_CLI_BYTES=N              print N bytes without a line feed
//   MORVA_CLI_OUTPUT=invalid-utf8  print a line that is not UTF-8
//   MORVA_CLI_OUTPUT=cut-character print a line of 1,023 ASCII bytes and a two-byte character
//   MORVA_CLI_NEVER_READY=1        "/ready" answers 503
//   MORVA_CLI_READY_AFTER_MS=N     "/ready" answers 503 until N ms after the start
//   MORVA_CLI_READY_ONLY_PORT=N    "/ready" answers 503 on every other port
//   MORVA_CLI_MUTE=1               accept connections, read requests, never answer
//   MORVA_CLI_WORDS=N              answer a prompt with N words instead of a greeting
//   MORVA_CLI_SPEAK_MS=N           read every text aloud for N ms
//   MORVA_CLI_TOKENS_PER_SECOND=N  the speed of an answer; as fast as possible when not set
//
// What is printed comes after the ordinary log lines and before the port is opened.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace viewer_cli {

struct Behaviour {
  std::string reportFile;
  std::optional<std::uint64_t> exitCode;
  std::uint64_t lines = 0;
  std::uint64_t bytes = 0;
  std::string output;
  bool neverReady = false;
  std::chrono::milliseconds readyAfter{0};
  std::optional<std::uint64_t> readyOnlyPort;
  bool mute = false;
  std::optional<std::uint64_t> words;
  std::chrono::milliseconds speaks{0};
  std::uint64_t tokensPerSecond = 0;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// A number that is none counts as not set.
Behaviour readBehaviour();

bool isReady(const Behaviour& behaviour, std::uint16_t port);

// The ordinary log lines and what the variables add to them.
void printOutput(const Behaviour& behaviour, std::uint16_t port);

// Does nothing without a report file. `commandTail` is all after the program's name.
void writeReport(const Behaviour& behaviour, const std::string& commandTail);

}  // namespace viewer_cli
