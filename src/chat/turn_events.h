#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// Sends a turn's closing events, exactly once: whatever comes after the first "agentDone" is
// ignored, and a turn that is left without one gets it from the destructor. Belongs to one thread.
class TurnEnd {
 public:
  explicit TurnEnd(std::string runId);
  ~TurnEnd();
  TurnEnd(const TurnEnd&) = delete;
  TurnEnd& operator=(const TurnEnd&) = delete;

  // The answer is complete: its text, its token usage when that is an object with content, done.
  void succeed(std::string_view chatSessionId, std::string_view text, const nlohmann::json& usage);
  // The turn ended with an error text, which need not be UTF-8.
  void fail(std::string_view error);

 private:
  void sendDone(bool ok, std::string_view error);

  std::string runId_;
  bool sent_ = false;
};

}  // namespace media::win::chrome_inspect
