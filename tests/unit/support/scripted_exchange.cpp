#include "support/scripted_exchange.h"

namespace media::win::chrome_inspect {

bool ScriptedExchange::available(std::size_t& count) {
  if (reads_.empty() || reads_.front().result == Read::availableFails) return false;
  const Read& next = reads_.front();
  count = next.promised != 0 ? next.promised : next.bytes.size();
  return true;
}

bool ScriptedExchange::read(char* buffer, std::size_t capacity, std::size_t& got) {
  capacities.push_back(capacity);
  Read& next = reads_.front();
  if (next.result == Read::readFails) return false;
  got = next.bytes.copy(buffer, capacity);
  next.bytes.erase(0, got);
  if (next.bytes.empty()) reads_.pop_front();
  return true;
}

}  // namespace media::win::chrome_inspect
