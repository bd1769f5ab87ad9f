#include "agent/feed_pump.h"

#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "agent/agent_end.h"
#include "agent/event_feed.h"
#include "agent/event_splitter.h"
#include "common/detached.h"

namespace media::win::chrome_inspect {

// One stream from its start to its end, which its destructor reports: whatever is thrown, and
// though there be no thread for it.
class FeedPump::Stream {
 public:
  Stream(FeedPump& pump, std::uint64_t number) : pump_(pump), number_(number) {}
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  ~Stream() {
    try {
      whileCurrent([this] { pump_.user_.ended(response_); });
    } catch (const std::exception&) {  // no memory for the last word
    }
  }

  void run(std::uint16_t port, const std::wstring& path) {
    response_ = agentFeed(
        port, path, {pump_.user_.slot, number_}, [this] { return isCurrent(); },
        [this](std::string_view chunk) { take(chunk); });
    forward(splitter_.pending());
  }

 private:
  bool isCurrent() const { return pump_.current_ == number_ && !agentsAreEnding(); }

  void whileCurrent(const std::function<void()>& action) {
    const Lock lock(pump_.speaking_);
    if (isCurrent()) action();
  }

  void forward(std::string_view block) {
    try {
      JsonDocument event;
      if (readFeedEvent(block, event)) whileCurrent([&] { pump_.user_.forward(event.root()); });
    } catch (const std::exception&) {  // no memory for this one; the next may do
    }
  }

  void take(std::string_view chunk) {
    if (!isCurrent()) return;
    try {
      splitter_.feed(chunk, [this](std::string_view block) { forward(block); });
    } catch (const std::exception&) {
      splitter_ = EventSplitter();  // a block too large: what it would have been is lost
    }
  }

  FeedPump& pump_;
  const std::uint64_t number_;
  EventSplitter splitter_;
  AgentResponse response_;
};

std::uint64_t FeedPump::begin(const std::function<bool()>& change) {
  std::uint64_t number = 0;
  {
    const Lock lock(speaking_);
    if (change && !change()) return 0;
    number = ++current_;
  }
  if (user_.beforeAbort != nullptr) user_.beforeAbort();
  abortOlderRequests(user_.slot, number);  // meanwhile a newer one may have been published
  return number;
}

void FeedPump::read(std::uint64_t number, std::uint16_t port, std::wstring path) {
  std::shared_ptr<Stream> stream;
  try {
    stream = std::make_shared<Stream>(*this, number);
  } catch (const std::bad_alloc&) {
    const Stream none(*this, number);  // reports its end, too
    return;
  }
  (void)runDetached(user_.threadName,
                    [stream, port, path = std::move(path)] { stream->run(port, path); });
}

}  // namespace media::win::chrome_inspect
