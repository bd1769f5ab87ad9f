#include "platform/http_client.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/owned.h"
#include "text/locks.h"
#include "text/request_line.h"

namespace media::win::chrome_inspect {
namespace {

struct InternetTraits {
  using Raw = HINTERNET;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { WinHttpCloseHandle(raw); }
};
using OwnedInternet = Owned<InternetTraits>;

// The request handle between the steps of its owner and an abort from elsewhere. A step that runs
// can only be ended by closing the handle under it, so abort does that; between two steps it only
// marks, and the next step does not begin. Whoever takes the handle out under the lock closes it.
class RequestGuard {
 public:
  explicit RequestGuard(OwnedInternet request) : request_(std::move(request)) {}

  // Runs one blocking call on the handle. Whatever came of it does not count once abort was called:
  // the handle's value may by then belong to another request.
  template <class Step>
  bool run(Step step) {
    HINTERNET request = nullptr;
    if (!enter(request)) return false;
    const bool ok = step(request);
    return leave() && ok;
  }

  void abort() {
    OwnedInternet doomed;  // closed after the lock is gone: a close may wait for the call
    const Lock lock(mutex_);
    aborted_ = true;
    if (inCall_) doomed = std::move(request_);
  }

 private:
  bool enter(HINTERNET& request) {
    const Lock lock(mutex_);
    if (aborted_) return false;
    inCall_ = true;
    request = request_.get();
    return true;
  }

  bool leave() {
    const Lock lock(mutex_);
    inCall_ = false;
    return !aborted_;
  }

  Mutex mutex_;  // never held during a call
  OwnedInternet request_ MORVA_GUARDED_BY(mutex_);
  bool inCall_ MORVA_GUARDED_BY(mutex_) = false;
  bool aborted_ MORVA_GUARDED_BY(mutex_) = false;
};

bool queryNumber(HINTERNET request, DWORD what, DWORD& number) {
  DWORD size = sizeof number;
  return WinHttpQueryHeaders(request, what | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &number, &size,
                             WINHTTP_NO_HEADER_INDEX) != FALSE;
}

DWORD statusOf(HINTERNET request) {
  DWORD status = 0;
  return queryNumber(request, WINHTTP_QUERY_STATUS_CODE, status) ? status : 0;
}

bool hasHeader(HINTERNET request, DWORD what) {
  DWORD size = 0;  // no room at all: a header that is there does not fit
  WinHttpQueryHeaders(request, what, WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &size,
                      WINHTTP_NO_HEADER_INDEX);
  return GetLastError() == ERROR_INSUFFICIENT_BUFFER;
}

// How many body bytes must come before the end; 0 when nothing was promised. Not every WinHTTP
// reports a connection that closes too early as a failure.
DWORD promisedLength(HINTERNET request) {
  const DWORD status = statusOf(request);
  DWORD length = 0;
  if (status == HTTP_STATUS_NO_CONTENT || status == HTTP_STATUS_NOT_MODIFIED ||
      hasHeader(request, WINHTTP_QUERY_TRANSFER_ENCODING) ||
      !queryNumber(request, WINHTTP_QUERY_CONTENT_LENGTH, length)) {
    return 0;
  }
  return length;
}

class WinHttpExchange final : public HttpExchange {
 public:
  WinHttpExchange(OwnedInternet session, OwnedInternet connection, OwnedInternet request)
      : session_(std::move(session)),
        connection_(std::move(connection)),
        request_(std::move(request)) {}

  bool send(std::string_view body) override {
    if (body.size() > std::numeric_limits<DWORD>::max()) return false;
    const auto size = static_cast<DWORD>(body.size());
    const wchar_t* headers =
        body.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : L"Content-Type: application/json\r\n";
    const DWORD headersLength = body.empty() ? 0 : static_cast<DWORD>(-1);  // terminated
    void* data = body.empty() ? WINHTTP_NO_REQUEST_DATA : const_cast<char*>(body.data());
    return request_.run([=](HINTERNET request) {
      return WinHttpSendRequest(request, headers, headersLength, data, size, size, 0) != FALSE;
    });
  }

  bool receive() override {
    return request_.run([this](HINTERNET request) {
      if (!WinHttpReceiveResponse(request, nullptr)) return false;
      missing_ = promisedLength(request);
      return true;
    });
  }

  std::uint32_t status() override {
    DWORD status = 0;
    const bool isKnown = request_.run([&status](HINTERNET request) {
      status = statusOf(request);
      return true;
    });
    return isKnown ? status : 0;
  }

  bool available(std::size_t& count) override {
    DWORD bytes = 0;
    if (!request_.run([&bytes](HINTERNET request) {
          return WinHttpQueryDataAvailable(request, &bytes) != FALSE;
        })) {
      return false;
    }
    if (bytes == 0 && missing_ > 0) return false;
    count = bytes;
    return true;
  }

  bool read(char* buffer, std::size_t capacity, std::size_t& got) override {
    const auto wanted =
        static_cast<DWORD>(std::min<std::size_t>(capacity, std::numeric_limits<DWORD>::max()));
    DWORD bytes = 0;
    if (!request_.run([=, &bytes](HINTERNET request) {
          return WinHttpReadData(request, buffer, wanted, &bytes) != FALSE;
        })) {
      return false;
    }
    missing_ -= std::min(missing_, bytes);
    got = bytes;
    return true;
  }

  void abort() override { request_.abort(); }

 private:
  DWORD missing_ = 0;  // of the promised body; only the owner's steps touch it
  // Closed from the last to the first: a parent handle must outlive what was made from it.
  OwnedInternet session_;
  OwnedInternet connection_;
  RequestGuard request_;
};

// The agent is on this machine: nothing may carry the request, or the user's name, elsewhere.
bool keepToOneServer(HINTERNET request) {
  DWORD features =
      WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;
  return WinHttpSetOption(request, WINHTTP_OPTION_DISABLE_FEATURE, &features, sizeof features) !=
         FALSE;
}

// The wait for the header has a limit of its own, 90 s by default, beside the one for each read.
bool limitHeaderWait(HINTERNET request, int receiveMs) {
  DWORD limit = receiveMs == 0 ? INFINITE : static_cast<DWORD>(receiveMs);
  return WinHttpSetOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &limit, sizeof limit) !=
         FALSE;
}

OwnedInternet openSession(const HttpTimeouts& limits) {
  OwnedInternet session(WinHttpOpen(L"morva-chrome-host", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                    WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (session && !WinHttpSetTimeouts(session.get(), limits.resolveMs, limits.connectMs,
                                     limits.sendMs, limits.receiveMs)) {
    session.reset();
  }
  return session;
}

}  // namespace

HttpOpenResult openHttpExchange(std::uint16_t port, const std::wstring& verb,
                                const std::wstring& path, const HttpTimeouts& timeouts,
                                std::shared_ptr<HttpExchange>& exchange) {
  OwnedInternet session = openSession(timeouts);
  if (!session) return HttpOpenResult::sessionFailed;
  if (port == 0) return HttpOpenResult::connectFailed;  // WinHTTP would take its default, 80
  OwnedInternet connection(WinHttpConnect(session.get(), L"127.0.0.1", port, 0));
  if (!connection) return HttpOpenResult::connectFailed;
  if (!fitsRequestLine(verb) || !fitsRequestLine(path)) return HttpOpenResult::requestFailed;
  OwnedInternet request(WinHttpOpenRequest(connection.get(), verb.c_str(), path.c_str(), nullptr,
                                           WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, 0));
  if (!request || !keepToOneServer(request.get()) ||
      !limitHeaderWait(request.get(), timeouts.receiveMs)) {
    return HttpOpenResult::requestFailed;
  }
  exchange = std::make_shared<WinHttpExchange>(std::move(session), std::move(connection),
                                               std::move(request));
  return HttpOpenResult::ok;
}

}  // namespace media::win::chrome_inspect
