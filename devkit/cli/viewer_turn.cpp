#include "viewer_turn.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>

#include "text/leaked.h"

namespace viewer_cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds longestNap{20};  // so that a cancel is heard soon

std::atomic<std::uint64_t>& turnGeneration() {
  static auto& generation = media::win::chrome_inspect::leaked<std::atomic<std::uint64_t>>(0U);
  return generation;
}

// What the user typed, still escaped as it stands in the JSON text, so that it can be put into
// another one unchanged.
std::string_view escapedPrompt(std::string_view body) {
  constexpr std::string_view key = "\"content\":\"";
  const std::size_t at = body.rfind(key);
  if (at == std::string_view::npos) return "(nothing)";
  std::string_view text = body.substr(at + key.size());
  std::size_t end = 0;
  while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2U : 1U;
  text = text.substr(0, std::min(end, text.size()));
  const std::size_t note = text.find("\\n\\n");
  const bool hasTabNote = text.starts_with("[chrome tab] ") && note != std::string_view::npos;
  return hasTabNote ? text.substr(note + 4) : text;
}

class TurnStream {
 public:
  TurnStream(Socket connection, std::uint64_t tokensPerSecond)
      : connection_(connection), tokensPerSecond_(tokensPerSecond) {}

  bool begin() const {
    return sendAll(connection_,
                   "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                   "Connection: close\r\n\r\n");
  }

  bool think(const std::string& escapedText) {
    return event(R"({"object":"morva.event","type":"thinking","text":")" + escapedText + "\"}");
  }

  bool word(std::string_view escapedText) {
    if (!waitForTurn()) return false;
    return event(R"({"choices":[{"index":0,"delta":{"content":")" + std::string(escapedText) +
                 R"("},"finish_reason":null}]})");
  }

  // One event per word; a word brings the space before it along.
  bool words(std::string_view escapedText) {
    while (!escapedText.empty()) {
      const std::size_t end = std::min(escapedText.find(' ', 1), escapedText.size());
      if (!word(escapedText.substr(0, end))) return false;
      escapedText.remove_prefix(end);
    }
    return true;
  }

  void finish() {
    const std::string count = std::to_string(words_);
    (void)(event(R"({"choices":[{"index":0,"delta":{},"finish_reason":"stop"}],)"
                 R"("usage":{"prompt_tokens":1,"completion_tokens":)" +
                 count + R"(,"total_tokens":)" + std::to_string(words_ + 1) + "}}") &&
           event("[DONE]"));  // a host that has gone needs no end
  }

 private:
  bool event(const std::string& data) const {
    return sendAll(connection_, "data: " + data + "\n\n");
  }

  // False when the turn has been cancelled.
  bool waitForTurn() {
    ++words_;
    if (tokensPerSecond_ > 0) {
      const auto due = start_ + std::chrono::microseconds(words_ * 1'000'000 / tokensPerSecond_);
      while (Clock::now() < due && !cancelled()) {
        std::this_thread::sleep_for(std::min<Clock::duration>(due - Clock::now(), longestNap));
      }
    }
    return !cancelled();
  }

  bool cancelled() const { return turnGeneration() != generation_; }

  Socket connection_;
  std::uint64_t tokensPerSecond_;
  std::uint64_t words_ = 0;
  std::uint64_t generation_ = turnGeneration();
  Clock::time_point start_ = Clock::now();
};

}  // namespace

void streamTurn(Socket connection, std::string_view body, const Behaviour& behaviour) {
  TurnStream turn(connection, behaviour.tokensPerSecond);
  if (!turn.begin() || !turn.think("A short and friendly answer will do.")) return;
  if (behaviour.words) {
    for (std::uint64_t i = 0; i < *behaviour.words; ++i) {
      if (!turn.word("word" + std::to_string(i) + " ")) return;
    }
  } else if (!turn.words("Hello! This is the stand-in program, started by the host. You said: ") ||
             !turn.words(escapedPrompt(body))) {
    return;
  }
  turn.finish();
}

void cancelTurns() { ++turnGeneration(); }

}  // namespace viewer_cli
