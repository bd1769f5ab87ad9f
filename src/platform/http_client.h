#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// One plain HTTP/1.1 exchange with a server on 127.0.0.1, step by step.
// Windows side: WinHTTP in asynchronous mode (learn.microsoft.com, winhttp.h; what a request may be
// cancelled by, and when it is gone, says WinHttpCloseHandle), no proxy, no redirects followed, no
// cookies, no automatic logon, a connection for each exchange. POSIX side: libcurl; for tests only.
namespace media::win::chrome_inspect {

// Limits per step in milliseconds; 0 waits without limit.
struct HttpTimeouts {
  int resolveMs = 4000;
  int connectMs = 4000;
  int sendMs = 15000;
  int receiveMs = 15000;
};

enum class HttpOpenResult { ok, sessionFailed, connectFailed, requestFailed };

// Owned by the thread that makes the exchange; `abort` is the one operation for other threads.
// Steps in order: send, receive, status, then available and read in turns until available counts 0.
// Each step blocks up to its time-out and is false when it failed or the exchange was aborted;
// after a false only destruction is left. Destruction closes whatever abort has not closed.
class HttpExchange {
 public:
  virtual ~HttpExchange() = default;

  // Sends the request. A `body` that is not empty goes with "Content-Type: application/json";
  // an empty one with no extra header and no data.
  virtual bool send(std::string_view body) = 0;
  // Waits for the whole response header.
  virtual bool receive() = 0;
  // The status code; 0 when it is not known.
  virtual std::uint32_t status() = 0;
  // Waits until body bytes can be read and counts them; 0 at the end of the body. A body that
  // ends before its announced length is a failure.
  virtual bool available(std::size_t& count) = 0;
  // Reads at most `capacity` bytes. Asked for no more than `available` promised, it does not wait.
  virtual bool read(char* buffer, std::size_t capacity, std::size_t& got) = 0;

  // From any thread, any number of times: makes the step that is running, and every later one, fail
  // at once. The caller keeps the exchange alive for the call (it holds a shared_ptr).
  virtual void abort() = 0;
};

// Loads what exchanges need, which otherwise is a part of the first one and can take longer than
// it.
void prepareForExchanges();

// Prepares an exchange; nothing is sent yet. `verb` and `path` (with query) are taken as they are;
// what cannot stand in a request line is `requestFailed`. `exchange` is set on `ok` only.
HttpOpenResult openHttpExchange(std::uint16_t port, const std::wstring& verb,
                                const std::wstring& path, const HttpTimeouts& timeouts,
                                std::shared_ptr<HttpExchange>& exchange);

}  // namespace media::win::chrome_inspect
