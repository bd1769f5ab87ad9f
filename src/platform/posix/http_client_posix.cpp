#include "platform/http_client.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/posix/abortable_socket_posix.h"
#include "platform/posix/http_body_posix.h"
#include "platform/posix/http_header_posix.h"
#include "platform/posix/wide_text_posix.h"
#include "text/request_line.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t networkRead = 16 * 1024;

// Characters past ASCII go percent-encoded, as WinHTTP sends them.
std::string escapedPath(const std::wstring& path) {
  constexpr char hex[] = "0123456789ABCDEF";
  std::string escaped;
  for (const char character : narrowText(path)) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) {
      escaped += character;
    } else {
      escaped += {'%', hex[byte >> 4U], hex[byte & 0x0FU]};
    }
  }
  return escaped;
}

class SocketExchange final : public HttpExchange {
 public:
  SocketExchange(std::uint16_t port, std::string verb, std::string path, HttpTimeouts limits)
      : port_(port), verb_(std::move(verb)), path_(std::move(path)), limits_(limits) {}

  bool open() { return socket_.open(); }

  bool send(std::string_view body) override {
    return socket_.connectTo(port_, limits_.connectMs) &&
           socket_.sendAll(requestText(body), limits_.sendMs);
  }

  bool receive() override {
    std::array<char, networkRead> buffer;
    for (;;) {
      std::size_t got = 0;
      if (!receiveBytes(buffer, got) || got == 0) return false;
      std::string_view bytes(buffer.data(), got);
      const ParseState state = header_.feed(bytes);
      if (state == ParseState::malformed) return false;
      if (state == ParseState::needsMore) continue;
      decoder_ = HttpBodyDecoder::forResponse(header_, verb_ == "HEAD");
      state_ = decoder_.feed(bytes, body_);
      return true;
    }
  }

  std::uint32_t status() override { return socket_.aborted() ? 0 : header_.status(); }

  // What one network read brought is handed on before there is another.
  bool available(std::size_t& count) override {
    std::array<char, networkRead> buffer;
    while (body_.size() == taken_ && state_ == ParseState::needsMore) {
      std::size_t got = 0;
      if (!receiveBytes(buffer, got)) return false;
      body_.clear();
      taken_ = 0;
      state_ = got == 0 ? decoder_.endOfConnection() : decoder_.feed({buffer.data(), got}, body_);
    }
    if (socket_.aborted()) return false;
    if (body_.size() == taken_ && state_ == ParseState::malformed) return false;
    count = body_.size() - taken_;
    return true;
  }

  bool read(char* buffer, std::size_t capacity, std::size_t& got) override {
    if (socket_.aborted()) return false;
    got = body_.copy(buffer, capacity, taken_);
    taken_ += got;
    return true;
  }

  void abort() override { socket_.abort(); }

 private:
  bool receiveBytes(std::array<char, networkRead>& buffer, std::size_t& got) {
    return socket_.receiveSome(buffer.data(), buffer.size(), limits_.receiveMs, got);
  }

  std::string requestText(std::string_view body) const {
    std::string text = verb_ + " " + path_ +
                       " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port_) +
                       "\r\nUser-Agent: morva-chrome-host\r\n";
    if (!body.empty()) text += "Content-Type: application/json\r\n";
    if (!body.empty() || verb_ == "POST") {
      text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    return text.append("Connection: close\r\n\r\n").append(body);
  }

  const std::uint16_t port_;
  const std::string verb_;
  const std::string path_;
  const HttpTimeouts limits_;
  AbortableSocket socket_;
  HttpHeaderReader header_;
  HttpBodyDecoder decoder_;
  ParseState state_ = ParseState::needsMore;  // of the body
  std::string body_;                          // decoded; taken up to `taken_`
  std::size_t taken_ = 0;
};

}  // namespace

HttpOpenResult openHttpExchange(std::uint16_t port, const std::wstring& verb,
                                const std::wstring& path, const HttpTimeouts& timeouts,
                                std::shared_ptr<HttpExchange>& exchange) {
  if (port == 0) return HttpOpenResult::connectFailed;
  if (!fitsRequestLine(verb) || !fitsRequestLine(path)) return HttpOpenResult::requestFailed;
  auto opened =
      std::make_shared<SocketExchange>(port, narrowText(verb), escapedPath(path), timeouts);
  if (!opened->open()) return HttpOpenResult::sessionFailed;
  exchange = std::move(opened);
  return HttpOpenResult::ok;
}

}  // namespace media::win::chrome_inspect
