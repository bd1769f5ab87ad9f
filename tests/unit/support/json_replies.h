#pragma once

#include <nlohmann/json.hpp>

#include "channel/pending_replies.h"
#include "support/testing.h"
#include "text/json_parse.h"

// Answers of the extension as trees, which tests build and compare more easily than documents.
namespace media::win::chrome_inspect {

inline JsonDocument documentOf(const nlohmann::json& value) {
  JsonDocument document;
  std::string error;
  EXPECT_EQ(readJson(dumpJson(value), document, error), ParseOutcome::ok) << error;
  return document;
}

// What a handler of messages replies; null when it is sent later.
template <class Answer>
nlohmann::json replyOf(const Answer& answer, const nlohmann::json& request) {
  const std::string reply = answer(documentOf(request).root());
  return reply.empty() ? nlohmann::json() : nlohmann::json::parse(reply);
}

inline void storeReply(const std::string& id, const nlohmann::json& reply, std::size_t bytes = 0) {
  storeReply(id, documentOf(reply), bytes);
}

inline bool waitForReply(const std::string& id, std::uint32_t timeoutMs, nlohmann::json& reply) {
  JsonDocument document;
  if (!waitForReply(id, timeoutMs, document)) return false;
  reply = document.root().toValue();
  return true;
}

inline bool callExtension(const nlohmann::json& message, nlohmann::json& reply,
                          std::uint32_t timeoutMs) {
  JsonDocument document;
  if (!callExtension(message, document, timeoutMs)) return false;
  reply = document.root().toValue();
  return true;
}

}  // namespace media::win::chrome_inspect
