#include "support/fed_pipe.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

void feed(const OwnedStream& pipe, const std::string& bytes, std::size_t chunk) {
  for (std::size_t done = 0, written = 0; done < bytes.size(); done += written) {
    const std::size_t size = std::min(chunk, bytes.size() - done);
    // The test has seen enough when the reading side is closed.
    if (!writeSome(pipe.get(), bytes.data() + done, size, written)) return;
  }
}

}  // namespace

FedPipe::FedPipe(std::string bytes, std::size_t chunk) {
  const auto writeEnd = std::make_shared<OwnedStream>();
  if (!makePipe(readEnd_, *writeEnd)) throw std::runtime_error("no pipe for the test");
  feeder_ = std::make_unique<TestThread>([writeEnd, chunk, bytes = std::move(bytes)] {
    feed(*writeEnd, bytes, chunk);
    writeEnd->reset();
  });
}

FedPipe::~FedPipe() {
  readEnd_.reset();  // first: the feeder may be waiting for a reader
  feeder_.reset();
}

std::string frameHeader(std::uint32_t length) {
  std::string header(sizeof length, '\0');
  std::memcpy(header.data(), &length, sizeof length);
  return header;
}

std::string frameOf(std::string_view body) {
  return frameHeader(static_cast<std::uint32_t>(body.size())).append(body);
}

}  // namespace media::win::chrome_inspect
