#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "plain_frames.h"
#include "platform/http_client.h"
#include "platform/process_control.h"

// The least that passes a stream on: for each frame it posts the frame's body to the agent on the
// port given as first argument, parses each event of the answer, and writes it back as one frame;
// after the last one {"method":"baselineDone"}. The same network calls as the host's.
namespace media::win::chrome_inspect {
namespace {

constexpr std::string_view separator = "\n\n";
constexpr std::string_view field = "data: ";

bool passOn(std::string_view block) {
  block.remove_prefix(field.size());
  return block == "[DONE]" || writePlainFrame(nlohmann::json::parse(block).dump());
}

// Passes whole blocks on and keeps the rest in `pending`.
bool passWholeBlocks(std::string& pending, std::size_t searched) {
  const std::string_view bytes = pending;
  std::size_t begin = 0;
  for (std::size_t end = bytes.find(separator, searched); end != std::string_view::npos;
       end = bytes.find(separator, begin)) {
    if (!passOn(bytes.substr(begin, end - begin))) return false;
    begin = end + separator.size();
  }
  pending.erase(0, begin);
  return true;
}

bool streamAnswer(std::uint16_t port, const std::string& body) {
  HttpTimeouts timeouts;
  timeouts.receiveMs = 0;
  std::shared_ptr<HttpExchange> request;
  if (openHttpExchange(port, L"POST", L"/v1/chat/completions", timeouts, request) !=
          HttpOpenResult::ok ||
      !request->send(body) || !request->receive()) {
    return false;
  }
  std::string pending;
  std::string piece;
  for (;;) {
    std::size_t count = 0;
    if (!request->available(count)) return false;
    if (count == 0) return true;
    piece.resize(count);
    std::size_t got = 0;
    if (!request->read(piece.data(), piece.size(), got)) return false;
    const std::size_t searched = pending.empty() ? 0 : pending.size() - 1;
    pending.append(piece, 0, got);
    if (!passWholeBlocks(pending, searched)) return false;
  }
}

int streamEach(std::uint16_t port) {
  prepareProcess();
  std::string body;
  while (readPlainFrame(body)) {
    if (!streamAnswer(port, body)) return 1;
    if (!writePlainFrame(R"({"method":"baselineDone"})")) return 1;
  }
  return 0;
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const long port = std::strtol(argv[1], nullptr, 10);
  return media::win::chrome_inspect::streamEach(static_cast<std::uint16_t>(port));
}
