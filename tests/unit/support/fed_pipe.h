#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/byte_stream.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {

// The reading side of a real pipe into which a thread writes `bytes`, `chunk` at a time, and then
// closes it.
class FedPipe {
 public:
  FedPipe(std::string bytes, std::size_t chunk);
  ~FedPipe();
  FedPipe(const FedPipe&) = delete;
  FedPipe& operator=(const FedPipe&) = delete;
  StreamId id() const { return readEnd_.get(); }

 private:
  OwnedStream readEnd_;
  std::unique_ptr<TestThread> feeder_;
};

// The four bytes that head a frame with a body of `length` bytes.
std::string frameHeader(std::uint32_t length);

// A whole frame.
std::string frameOf(std::string_view body);

}  // namespace media::win::chrome_inspect
