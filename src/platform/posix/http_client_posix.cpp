#include "platform/http_client.h"

#include <curl/curl.h>

#include <atomic>
#include <climits>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "platform/owned.h"
#include "text/request_line.h"
#include "text/url_escape.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

template <class Object, auto closeObject>
struct CurlTraits {
  using Raw = Object*;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { closeObject(raw); }
};
using OwnedMulti = Owned<CurlTraits<CURLM, curl_multi_cleanup>>;
using OwnedEasy = Owned<CurlTraits<CURL, curl_easy_cleanup>>;
using OwnedLines = Owned<CurlTraits<curl_slist, curl_slist_free_all>>;

// What is left of a limit in milliseconds that began at `startMs`; 0 is no limit.
int restOf(int limitMs, std::uint64_t startMs) {
  if (limitMs == 0) return INT_MAX;
  const std::uint64_t taken = tickCountMs() - startMs;
  return taken < static_cast<std::uint64_t>(limitMs) ? limitMs - static_cast<int>(taken) : 0;
}

// One transfer in a multi handle of its own: the steps drive it, and abort wakes the driver up.
class CurlExchange final : public HttpExchange {
 public:
  CurlExchange(std::uint16_t port, std::string verb, const std::string& target,
               const HttpTimeouts& limits)
      : verb_(std::move(verb)),
        limits_(limits),
        multi_(curl_multi_init()),
        easy_(curl_easy_init()) {
    if (!isOpen()) return;
    set(CURLOPT_URL, ("http://127.0.0.1:" + std::to_string(port)).c_str());
    set(CURLOPT_REQUEST_TARGET, target.c_str());
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_NOPROXY, "*");
    set(CURLOPT_USERAGENT, "morva-chrome-host");
    set(CURLOPT_CONNECTTIMEOUT_MS, long{INT_MAX});  // the steps have limits of their own
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_HEADERFUNCTION, takeHeaderLine);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, takeBody);
    set(CURLOPT_WRITEDATA, this);
  }
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;
  ~CurlExchange() override {
    if (isOpen()) curl_multi_remove_handle(multi_.get(), easy_.get());
  }

  bool isOpen() const { return multi_ && easy_; }

  bool send(std::string_view body) override {
    // A line without a value: not to be sent.
    if (!addLine(body.empty() ? "Content-Type:" : "Content-Type: application/json") ||
        !addLine("Expect:")) {
      return false;
    }
    set(CURLOPT_HTTPHEADER, lines_.get());
    const auto size = static_cast<curl_off_t>(body.size());
    if (size > 0 || verb_ == "POST") {
      set(CURLOPT_POSTFIELDSIZE_LARGE, size);
      set(CURLOPT_COPYPOSTFIELDS, size > 0 ? body.data() : "");
    }
    set(CURLOPT_CUSTOMREQUEST, verb_.c_str());
    if (curl_multi_add_handle(multi_.get(), easy_.get()) != CURLM_OK) return false;
    const auto isConnected = [this] { return info<curl_off_t>(CURLINFO_CONNECT_TIME_T) > 0; };
    const auto isSent = [this, size] {
      return hasHeader_ || (info<long>(CURLINFO_REQUEST_SIZE) > 0 &&
                            info<curl_off_t>(CURLINFO_SIZE_UPLOAD_T) == size);
    };
    return driveUntil(isConnected, limits_.connectMs) && driveUntil(isSent, limits_.sendMs);
  }

  bool receive() override {
    return driveUntil([this] { return hasHeader_; }, limits_.receiveMs);
  }

  std::uint32_t status() override {
    return aborted_.load() ? 0 : static_cast<std::uint32_t>(info<long>(CURLINFO_RESPONSE_CODE));
  }

  bool available(std::size_t& count) override {
    const auto isSettled = [this] { return waiting() > 0 || isOver_; };
    if (!driveUntil(isSettled, limits_.receiveMs)) return false;
    if (waiting() == 0 && result_ != CURLE_OK) return false;
    count = waiting();
    return true;
  }

  bool read(char* buffer, std::size_t capacity, std::size_t& got) override {
    if (aborted_.load()) return false;
    got = body_.copy(buffer, capacity, taken_);
    taken_ += got;
    return true;
  }

  void abort() override {
    aborted_.store(true);
    (void)curl_multi_wakeup(multi_.get());  // a step that is not woken up ends at its limit
  }

 private:
  template <class Value>
  void set(CURLoption option, Value value) {
    (void)curl_easy_setopt(easy_.get(), option, value);  // refuses only what it does not know
  }

  template <class Value>
  Value info(CURLINFO what) const {
    Value value = 0;
    (void)curl_easy_getinfo(easy_.get(), what, &value);
    return value;
  }

  bool addLine(const char* line) {
    curl_slist* const longer = curl_slist_append(lines_.get(), line);
    if (longer == nullptr) return false;
    (void)lines_.release();  // it is the beginning of the longer one
    lines_.reset(longer);
    return true;
  }

  std::size_t waiting() const { return body_.size() - taken_; }

  // Runs the transfer until `isReached`. False when it ends before, at the limit, or by abort.
  template <class IsReached>
  bool driveUntil(const IsReached& isReached, int limitMs) {
    const std::uint64_t startMs = tickCountMs();
    while (!aborted_.load()) {
      if (isReached()) return true;
      const int restMs = restOf(limitMs, startMs);
      if (isOver_ || restMs == 0 || !drive(restMs)) return false;
    }
    return false;
  }

  // Waits until there is something to do, and does it.
  bool drive(int waitMs) {
    int left = 0;
    if (curl_multi_poll(multi_.get(), nullptr, 0, waitMs, nullptr) != CURLM_OK ||
        curl_multi_perform(multi_.get(), &left) != CURLM_OK) {
      return false;
    }
    if (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
      isOver_ = true;  // there is one transfer, and its end is the only kind of message
      result_ = message->data.result;
    }
    return true;
  }

  static std::size_t takeHeaderLine(char* line, std::size_t /*one*/, std::size_t size, void* self) {
    auto& exchange = *static_cast<CurlExchange*>(self);
    constexpr long firstFinalStatus = 200;  // what is below is followed by another header
    const bool isEmpty = *line == '\r' || *line == '\n';
    if (isEmpty && exchange.info<long>(CURLINFO_RESPONSE_CODE) >= firstFinalStatus) {
      exchange.hasHeader_ = true;
    }
    return size;
  }

  static std::size_t takeBody(char* bytes, std::size_t /*one*/, std::size_t size, void* self) {
    auto& exchange = *static_cast<CurlExchange*>(self);
    if (exchange.waiting() == 0) {
      exchange.body_.clear();
      exchange.taken_ = 0;
    }
    try {
      exchange.body_.append(bytes, size);
    } catch (const std::bad_alloc&) {
      return 0;  // which ends the transfer: nothing may be thrown through the library
    }
    return size;
  }

  const std::string verb_;
  const HttpTimeouts limits_;
  const OwnedMulti multi_;
  const OwnedEasy easy_;
  OwnedLines lines_;
  std::string body_;  // as far as it came; read up to `taken_`
  std::size_t taken_ = 0;
  bool hasHeader_ = false;
  bool isOver_ = false;
  CURLcode result_ = CURLE_OK;  // once it is over
  std::atomic<bool> aborted_ = false;
};

bool isCurlUsable() {
  static const bool isUsable = curl_global_init(CURL_GLOBAL_NOTHING) == CURLE_OK;
  return isUsable;
}

}  // namespace

void prepareForExchanges() { (void)isCurlUsable(); }

HttpOpenResult openHttpExchange(std::uint16_t port, const std::wstring& verb,
                                const std::wstring& path, const HttpTimeouts& timeouts,
                                std::shared_ptr<HttpExchange>& exchange) {
  if (port == 0) return HttpOpenResult::connectFailed;
  if (!fitsRequestLine(verb) || !fitsRequestLine(path)) return HttpOpenResult::requestFailed;
  if (!isCurlUsable()) return HttpOpenResult::sessionFailed;
  // What is past ASCII goes percent-encoded, as WinHTTP sends it.
  auto opened =
      std::make_shared<CurlExchange>(port, toUtf8(verb), escapeTarget(toUtf8(path)), timeouts);
  if (!opened->isOpen()) return HttpOpenResult::sessionFailed;
  exchange = std::move(opened);
  return HttpOpenResult::ok;
}

}  // namespace media::win::chrome_inspect
