#include "host/command_run.h"

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <string>

#include "chat/events_pump.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct RunCase {
  const char* status;
  const char* body;
  const char* data;   // nullptr: not ok
  const char* error;  // then
};

constexpr const char* notRunning = "morva is not running";

const RunCase runCases[] = {
    {"200 OK", R"({"ok":true,"data":{"a":1}})", R"({"a":1})", ""},
    {"200 OK", R"({"ok":true})", "{}", ""},
    {"200 OK", R"({"ok":false,"error":"no"})", nullptr, "no"},
    {"200 OK", R"({"ok":false,"error":5})", nullptr, "commandRun failed"},
    {"200 OK", "{}", nullptr, "commandRun failed"},
    {"200 OK", "[]", nullptr, "commandRun failed"},
    {"200 OK", R"({"ok":false,"needsUi":false})", nullptr, "commandRun failed"},
    {"500 No", R"({"ok":true})", nullptr, "commandRun failed"},
    {"500 No", R"({"error":"boom"})", nullptr, "boom"},
    {"503 No", R"({"ok":false,"needsUi":true,"error":"e"})", nullptr, "e"},
    {"500 No", "<html>", nullptr, "commandRun failed"},
    {"404 Not Found", R"({"ok":true})", nullptr, notRunning},
    {"200 OK", R"({"ok":false,"needsUi":true})", nullptr, notRunning},
    {"200 OK", "{", nullptr, notRunning},
    {"200 OK", "", nullptr, notRunning},
    {"", "", nullptr, "commandRun failed"},  // hangs up
};

TEST(CommandRun, LeavesToTheApplicationWhatTheAgentCannotDo) {
  const TestFolder appData;  // no application announces itself here
  const EnvironmentVariable variable("APPDATA", appData.path().string());
  CapturedOutput output;
  std::atomic<const RunCase*> current = nullptr;
  AgentDouble agent([&current](ServedConnection& connection) {
    const RunCase& c = *current;
    if (*c.status != '\0') answerWith(connection, c.body, c.status);
  });
  agent.adopt();
  for (const RunCase& c : runCases) {
    SCOPED_TRACE(std::string(c.status) + " " + c.body);
    current = &c;
    const json reply = answerCommandRun({{"id", "x"}, {"rpcId", 1}});
    EXPECT_EQ(reply.at("ok"), c.data != nullptr);
    EXPECT_EQ(reply.at("id"), "x");
    EXPECT_EQ(reply.at("rpcId"), 1);
    if (c.data != nullptr) {
      EXPECT_EQ(reply.at("data").dump(), c.data);
    } else {
      EXPECT_EQ(reply.at("error"), c.error);
    }
  }
}

TEST(CommandRun, AddsTheSender) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, R"({"ok":true})"); });
  agent.adopt();
  (void)answerCommandRun({{"id", "x"}, {"sender", "mine"}});
  pointChatEvents("window", 0);
  (void)answerCommandRun({{"id", "x"}, {"sender", "mine"}});
  const auto requests = agent.requests("POST /v1/chat/commands/run");
  EXPECT_EQ(bodyOf(requests.at(0)), R"({"id":"x","sender":"mine"})");
  EXPECT_EQ(bodyOf(requests.at(1)), R"({"id":"x","sender":"window"})");
}

TEST(CommandRun, ThrowsForAnIdThatIsNoText) {
  EXPECT_THROW((void)answerCommandRun({{"id", 5}}), json::type_error);
}

}  // namespace
}  // namespace media::win::chrome_inspect
