#include <memory>
#include <string>
#include <string_view>

#include "plain_frames.h"
#include "platform/http_client.h"

// The least that passes a stream on: posts the body of a "send" frame to the agent, writes each
// event of the answer back as a frame, all of one network read in one write, and after the last one
// {"method":"agentDone"}. The same network calls as the host's. Other frames it writes back.
namespace media::win::chrome_inspect {
namespace {

constexpr std::uint16_t agentPort = 8090;
constexpr std::string_view separator = "\n\n";
constexpr std::string_view field = "data: ";
constexpr std::string_view lastEvent = "data: [DONE]";

// Passes whole blocks on and keeps the rest in `pending`.
bool passWholeBlocks(std::string& pending, std::size_t searched, std::string& frames) {
  const std::string_view bytes = pending;
  std::size_t begin = 0;
  frames.clear();
  for (std::size_t end = bytes.find(separator, searched); end != std::string_view::npos;
       end = bytes.find(separator, begin)) {
    const std::string_view block = bytes.substr(begin, end - begin);
    if (block != lastEvent) appendPlainFrame(frames, block.substr(field.size()));
    begin = end + separator.size();
  }
  pending.erase(0, begin);
  return writePlainly(frames);
}

bool streamAnswer(std::string_view body) {
  HttpTimeouts timeouts;
  timeouts.receiveMs = 0;
  std::shared_ptr<HttpExchange> request;
  if (openHttpExchange(agentPort, L"POST", L"/v1/chat/completions", timeouts, request) !=
          HttpOpenResult::ok ||
      !request->send(body) || !request->receive()) {
    return false;
  }
  std::string pending;
  std::string frames;
  for (std::size_t count = 0; request->available(count);) {
    if (count == 0) return true;
    const std::size_t before = pending.size();
    std::size_t got = 0;
    pending.resize(before + count);
    if (!request->read(pending.data() + before, count, got)) return false;
    pending.resize(before + got);
    if (!passWholeBlocks(pending, before > 0 ? before - 1 : 0, frames)) return false;
  }
  return false;
}

bool answer(const std::string& frame) {
  if (frame.find(R"("kind":"send")") == std::string::npos) return writePlainly(frame);
  std::string done;
  appendPlainFrame(done, R"({"method":"agentDone"})");
  return streamAnswer(std::string_view(frame).substr(frameHead)) && writePlainly(done);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main() {
  return media::win::chrome_inspect::answerEachFrame(media::win::chrome_inspect::answer);
}
