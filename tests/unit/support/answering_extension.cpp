#include "support/answering_extension.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "channel/framing.h"
#include "channel/pending_replies.h"
#include "support/standard_output.h"

namespace media::win::chrome_inspect {

AnsweringExtension::AnsweringExtension(Handler handler) : handler_(std::move(handler)) {
  if (!makePipe(readEnd_, writeEnd_)) throw std::runtime_error("no pipe for the test");
  old_ = replaceStandardOutput(writeEnd_.get());
  reader_ = std::make_unique<TestThread>([this] { readAll(); });
}

AnsweringExtension::~AnsweringExtension() {
  restoreStandardOutput(old_);
  writeEnd_.reset();
  reader_.reset();
}

void AnsweringExtension::readAll() {
  nlohmann::json message;
  std::string error;
  while (readFrame(readEnd_.get(), message, error)) handler_(message);
}

void answer(const nlohmann::json& message, nlohmann::json reply) {
  const auto id = message.at("requestId").get<std::string>();
  reply["requestId"] = id;
  storeReply(id, std::move(reply));
}

}  // namespace media::win::chrome_inspect
