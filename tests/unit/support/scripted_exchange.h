#pragma once

#include "platform/http_client.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// An exchange whose steps a test decides; counts its aborts.
class ScriptedExchange : public HttpExchange {
 public:
  struct Read {
    std::string bytes;  // none: the step that asks for them fails, or the body ends
    enum { data, end, availableFails, readFails } result = data;
    std::size_t promised = 0;  // what `available` says; 0: as many as there are
  };
  explicit ScriptedExchange(std::deque<Read> reads = {}) : reads_(std::move(reads)) {}

  bool send(std::string_view) override { return true; }
  bool receive() override { return true; }
  std::uint32_t status() override { return 200; }
  bool available(std::size_t& count) override {
    if (reads_.empty() || reads_.front().result == Read::availableFails) return false;
    const Read& next = reads_.front();
    count = next.promised != 0 ? next.promised : next.bytes.size();
    return true;
  }
  bool read(char* buffer, std::size_t capacity, std::size_t& got) override {
    capacities.push_back(capacity);
    Read& next = reads_.front();
    if (next.result == Read::readFails) return false;
    got = next.bytes.copy(buffer, capacity);
    next.bytes.erase(0, got);
    if (next.bytes.empty()) reads_.pop_front();
    return true;
  }
  void abort() override { ++aborts; }

  std::atomic<int> aborts = 0;
  std::vector<std::size_t> capacities;  // of the reads so far

 private:
  std::deque<Read> reads_;
};

}  // namespace media::win::chrome_inspect
