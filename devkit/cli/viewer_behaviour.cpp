#include "viewer_behaviour.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>
#include <vector>

#include "viewer_system.h"

namespace viewer_cli {
namespace {

constexpr std::size_t printPieceBytes = 1 << 16;

std::optional<std::uint64_t> environmentNumber(const char* name) {
  const std::string text = environmentText(name);
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return value;
}

void print(std::string_view text) { (void)std::fwrite(text.data(), 1, text.size(), stdout); }

void printBytes(std::uint64_t count) {
  const std::string piece(printPieceBytes, 'x');
  while (count > 0) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(count, piece.size()));
    print(std::string_view(piece).substr(0, size));
    count -= size;
  }
}

std::string jsonText(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20) {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
      result += escape.data();
      continue;
    }
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + '"';
}

std::string jsonText(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : ",") + jsonText(text);
  return "[" + result + "]";
}

}  // namespace

Behaviour readBehaviour() {
  return {
      .reportFile = environmentText("MORVA_CLI_REPORT"),
      .exitCode = environmentNumber("MORVA_CLI_EXIT"),
      .lines = environmentNumber("MORVA_CLI_LINES").value_or(0),
      .bytes = environmentNumber("MORVA_CLI_BYTES").value_or(0),
      .output = environmentText("MORVA_CLI_OUTPUT"),
      .neverReady = environmentNumber("MORVA_CLI_NEVER_READY").value_or(0) != 0,
      .readyAfter =
          std::chrono::milliseconds(environmentNumber("MORVA_CLI_READY_AFTER_MS").value_or(0)),
      .readyOnlyPort = environmentNumber("MORVA_CLI_READY_ONLY_PORT"),
      .mute = environmentNumber("MORVA_CLI_MUTE").value_or(0) != 0,
      .words = environmentNumber("MORVA_CLI_WORDS"),
      .speaks = std::chrono::milliseconds(environmentNumber("MORVA_CLI_SPEAK_MS").value_or(0)),
      .tokensPerSecond = environmentNumber("MORVA_CLI_TOKENS_PER_SECOND").value_or(0),
  };
}

bool isReady(const Behaviour& behaviour, std::uint16_t port) {
  if (behaviour.neverReady || behaviour.readyOnlyPort.value_or(port) != port) return false;
  return std::chrono::steady_clock::now() - behaviour.start >= behaviour.readyAfter;
}

void printOutput(const Behaviour& behaviour, std::uint16_t port) {
  print("morva-viewer-cli stand-in, log level trace\n");
  print("a line that ends as Windows programs end them\r\n");
  print("serving on 127.0.0.1:" + std::to_string(port) + " \xE2\x80\x94 gr\xC3\xBC\xC3\x9F dich\n");
  for (std::uint64_t i = 1; i <= behaviour.lines; ++i) print("line " + std::to_string(i) + "\n");
  if (behaviour.output == "invalid-utf8") print("not UTF-8: \xFF\xC3(\xE2\x82 end\n");
  if (behaviour.output == "cut-character") print(std::string(1023, 'a') + "\xC3\xA9\n");
  printBytes(behaviour.bytes);
  (void)std::fflush(stdout);
}

void writeReport(const Behaviour& behaviour, const std::string& commandTail) {
  if (behaviour.reportFile.empty()) return;
  const std::string line =
      "{\"pid\":" + std::to_string(ownProcessId()) + ",\"command\":" + jsonText(commandTail) +
      ",\"folder\":" + jsonText(workingFolder()) + ",\"standard\":" + jsonText(standardStreams()) +
      ",\"inherited\":" + jsonText(inheritedHandles()) + "}\n";
  if (!appendToFile(behaviour.reportFile, line)) {
    std::fprintf(stderr, "cannot write the report %s\n", behaviour.reportFile.c_str());
  }
}

}  // namespace viewer_cli
