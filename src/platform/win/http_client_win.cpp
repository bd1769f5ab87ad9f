#include "platform/http_client.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "platform/locks.h"
#include "platform/owned.h"
#include "text/leaked.h"
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

// A request between its owner, who starts its steps and waits for them, the system, which reports
// on threads of its own what was reached, and whoever aborts it. An abort only marks it and wakes
// the owner, who then closes the handle. What is in here must outlive the handle: the system uses
// the buffers, and calls back, until its last word, HANDLE_CLOSING.
class Request {
 public:
  enum class Goal { sent, answered, piece };

  explicit Request(OwnedInternet handle) : handle_(std::move(handle)) {}

  // Owner: what it uses between two steps.
  HINTERNET handle() const { return handle_.get(); }

  // Owner: starts a step that is to reach `goal`. False when it cannot be started, or abort was
  // called.
  template <class Start>
  bool begin(Goal goal, Start start) {
    {
      const Lock lock(mutex_);
      if (aborted_) return false;
      reached_.at(static_cast<std::size_t>(goal)) = false;
    }
    return start(handle_.get()) != FALSE;
  }

  // Owner: waits for that. False when the request failed before, or abort was called.
  bool waitFor(Goal goal) {
    const Lock lock(mutex_);
    const bool& isReached = reached_.at(static_cast<std::size_t>(goal));
    while (!isReached && !failed_ && !aborted_) {
      changed_.wait(mutex_);
    }
    return isReached && !aborted_;
  }

  // Owner, as the last thing.
  void close() {
    OwnedInternet doomed;  // closed after the lock is gone: the system calls back
    const Lock lock(mutex_);
    closed_ = true;
    if (systemCalls_ == 0) doomed = std::move(handle_);
  }

  void abort() {
    const Lock lock(mutex_);
    aborted_ = true;
    changed_.notifyAll();
  }

  bool isAborted() {
    const Lock lock(mutex_);
    return aborted_;
  }

  // The system: goes on with the handle, which the owner may close meanwhile.
  template <class Call>
  void goOn(Call call) {
    {
      const Lock lock(mutex_);
      if (closed_) return;
      ++systemCalls_;
    }
    if (!call(handle_.get())) fail();
    OwnedInternet doomed;
    const Lock lock(mutex_);
    --systemCalls_;
    if (closed_ && systemCalls_ == 0) doomed = std::move(handle_);
  }

  void reach(Goal goal) {
    const Lock lock(mutex_);
    reached_.at(static_cast<std::size_t>(goal)) = true;
    changed_.notifyAll();
  }

  void fail() {
    const Lock lock(mutex_);
    failed_ = true;
    changed_.notifyAll();
  }

  // The owner's between two steps, the system's during one.
  DWORD_PTR context = 0;  // of the handle
  std::string body;       // of the request
  std::string piece;      // of the answer's body

 private:
  Mutex mutex_;  // guards what follows; not held during a call
  Condition changed_;
  OwnedInternet handle_;
  std::array<bool, 3> reached_ = {};
  bool failed_ = false;
  bool aborted_ = false;
  bool closed_ = false;
  int systemCalls_ = 0;  // threads of the system that use the handle; the last one closes it
};

// The header is asked for on the system's thread: Wine answers in the call itself.
void receiveAnswer(Request& request) {
  request.reach(Request::Goal::sent);
  request.goOn([](HINTERNET handle) { return WinHttpReceiveResponse(handle, nullptr); });
}

// So much of the body is there. It is read here and now, so that the owner is woken up once for
// each piece.
void readPiece(Request& request, DWORD bytes) {
  constexpr DWORD maxPiece = 1024 * 1024;
  // What Wine says of a connection that was reset behind the header: it crashes when it reads them.
  constexpr DWORD noCount = 0xFFFFFFFF;
  if (bytes == noCount) return request.fail();
  try {
    request.piece.resize(std::min(bytes, maxPiece));
  } catch (const std::bad_alloc&) {
    return request.fail();  // no exception may leave a callback
  }
  if (bytes == 0) return request.reach(Request::Goal::piece);
  request.goOn([&piece = request.piece](HINTERNET handle) {
    return WinHttpReadData(handle, piece.data(), static_cast<DWORD>(piece.size()), nullptr);
  });
}

// The context of a handle: a share in its request until the handle is gone.
using RequestShare = std::shared_ptr<Request>;

void CALLBACK onStatus(HINTERNET /*handle*/, DWORD_PTR context, DWORD status, void* information,
                       DWORD size) {
  auto* const share = reinterpret_cast<RequestShare*>(context);
  if (share == nullptr) return;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
      return receiveAnswer(**share);
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      return (*share)->reach(Request::Goal::answered);
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      return readPiece(**share, *static_cast<DWORD*>(information));
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      (*share)->piece.resize(size);
      return (*share)->reach(Request::Goal::piece);
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      return (*share)->fail();
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      delete share;
      return;
    default:
      return;
  }
}

// Has the system call back about a handle with a share of its request.
bool attach(const RequestShare& request) {
  constexpr DWORD wanted = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
  const HINTERNET handle = request->handle();
  auto share = std::make_unique<RequestShare>(request);
  request->context = reinterpret_cast<DWORD_PTR>(share.get());
  if (WinHttpSetStatusCallback(handle, onStatus, wanted, 0) == WINHTTP_INVALID_STATUS_CALLBACK ||
      !WinHttpSetOption(handle, WINHTTP_OPTION_CONTEXT_VALUE, &request->context,
                        sizeof request->context)) {
    return false;
  }
  (void)share.release();  // the handle's own now
  return true;
}

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
  WinHttpExchange(OwnedInternet connection, RequestShare request)
      : connection_(std::move(connection)), request_(std::move(request)) {}
  ~WinHttpExchange() override { request_->close(); }
  WinHttpExchange(const WinHttpExchange&) = delete;
  WinHttpExchange& operator=(const WinHttpExchange&) = delete;

  bool send(std::string_view body) override {
    if (body.size() > std::numeric_limits<DWORD>::max()) return false;
    Request& request = *request_;
    request.body = body;
    const auto size = static_cast<DWORD>(body.size());
    const wchar_t* headers =
        body.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : L"Content-Type: application/json\r\n";
    const DWORD headersLength = body.empty() ? 0 : static_cast<DWORD>(-1);  // terminated
    void* data = body.empty() ? WINHTTP_NO_REQUEST_DATA : request.body.data();
    return request.begin(Request::Goal::sent, [=, context = request.context](HINTERNET handle) {
      return WinHttpSendRequest(handle, headers, headersLength, data, size, size, context);
    }) && request.waitFor(Request::Goal::sent);
  }

  bool receive() override {
    if (!request_->waitFor(Request::Goal::answered)) return false;
    status_ = statusOf(request_->handle());
    missing_ = promisedLength(request_->handle());
    return true;
  }

  std::uint32_t status() override { return request_->isAborted() ? 0 : status_; }

  bool available(std::size_t& count) override {
    if (taken_ == request_->piece.size() && !nextPiece()) return false;
    if (request_->isAborted()) return false;
    count = request_->piece.size() - taken_;
    return true;
  }

  bool read(char* buffer, std::size_t capacity, std::size_t& got) override {
    if (request_->isAborted()) return false;
    got = request_->piece.copy(buffer, capacity, taken_);
    taken_ += got;
    return true;
  }

  void abort() override { request_->abort(); }

 private:
  bool nextPiece() {
    const auto ask = [](HINTERNET handle) { return WinHttpQueryDataAvailable(handle, nullptr); };
    if (!request_->begin(Request::Goal::piece, ask) || !request_->waitFor(Request::Goal::piece)) {
      return false;
    }
    taken_ = 0;
    const auto size = static_cast<DWORD>(request_->piece.size());
    if (size == 0 && missing_ > 0) return false;
    missing_ -= std::min(missing_, size);
    return true;
  }

  OwnedInternet connection_;  // outlives the request's handle, which is closed first
  RequestShare request_;
  // Only the owner's steps touch these.
  std::uint32_t status_ = 0;
  DWORD missing_ = 0;      // of the promised body
  std::size_t taken_ = 0;  // of the piece
};

// The agent is on this machine: nothing may carry the request, or the user's name, elsewhere. No
// connection stays open behind a request: an agent may serve one at a time.
bool keepToOneExchange(HINTERNET request) {
  DWORD features = WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES |
                   WINHTTP_DISABLE_AUTHENTICATION | WINHTTP_DISABLE_KEEP_ALIVE;
  return WinHttpSetOption(request, WINHTTP_OPTION_DISABLE_FEATURE, &features, sizeof features) !=
         FALSE;
}

bool limitSteps(HINTERNET request, const HttpTimeouts& limits) {
  // The wait for the header has a limit of its own, 90 s by default, beside the one for each read.
  // Where that cannot be set, the other still counts.
  DWORD header = limits.receiveMs == 0 ? INFINITE : static_cast<DWORD>(limits.receiveMs);
  (void)WinHttpSetOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &header, sizeof header);
  return WinHttpSetTimeouts(request, limits.resolveMs, limits.connectMs, limits.sendMs,
                            limits.receiveMs) != FALSE;
}

// One for the whole process: to open one takes longer than a request. Never closed. Null when the
// system refuses it, in which case it is asked again next time.
HINTERNET sharedSession() {
  static Mutex& mutex = leaked<Mutex>();
  static HINTERNET session = nullptr;
  const Lock lock(mutex);
  if (session == nullptr) {
    session = WinHttpOpen(L"morva-chrome-host", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                          WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC);
  }
  return session;
}

}  // namespace

void prepareForExchanges() { (void)sharedSession(); }

HttpOpenResult openHttpExchange(std::uint16_t port, const std::wstring& verb,
                                const std::wstring& path, const HttpTimeouts& timeouts,
                                std::shared_ptr<HttpExchange>& exchange) {
  const HINTERNET session = sharedSession();
  if (session == nullptr) return HttpOpenResult::sessionFailed;
  if (port == 0) return HttpOpenResult::connectFailed;  // WinHTTP would take its default, 80
  OwnedInternet connection(WinHttpConnect(session, L"127.0.0.1", port, 0));
  if (!connection) return HttpOpenResult::connectFailed;
  if (!fitsRequestLine(verb) || !fitsRequestLine(path)) return HttpOpenResult::requestFailed;
  OwnedInternet handle(WinHttpOpenRequest(connection.get(), verb.c_str(), path.c_str(), nullptr,
                                          WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, 0));
  if (!handle || !keepToOneExchange(handle.get()) || !limitSteps(handle.get(), timeouts)) {
    return HttpOpenResult::requestFailed;
  }
  const auto request = std::make_shared<Request>(std::move(handle));
  if (!attach(request)) return HttpOpenResult::requestFailed;
  exchange = std::make_shared<WinHttpExchange>(std::move(connection), request);
  return HttpOpenResult::ok;
}

}  // namespace media::win::chrome_inspect
