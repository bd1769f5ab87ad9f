#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/byte_stream.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {

// Stands where the extension is: while it lives, what the host sends is handed, parsed, to a
// handler, on a thread of its own. The handler answers by storing replies, at once or later.
class AnsweringExtension {
 public:
  using Handler = std::function<void(const nlohmann::json& message)>;
  explicit AnsweringExtension(Handler handler);
  ~AnsweringExtension();
  AnsweringExtension(const AnsweringExtension&) = delete;
  AnsweringExtension& operator=(const AnsweringExtension&) = delete;

 private:
  void readAll();

  Handler handler_;
  OwnedStream readEnd_;
  OwnedStream writeEnd_;
  StreamId old_;
  std::unique_ptr<TestThread> reader_;
};

// Answers `message`, as the reader of standard input would.
void answer(const nlohmann::json& message, nlohmann::json reply);

}  // namespace media::win::chrome_inspect
