#include "shell/path_opening.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr PathAction actions[] = {PathAction::open, PathAction::reveal, PathAction::explore};

TEST(OpenPath, SaysThatThereIsNoSuchFile) {
  const TestFolder folder;
  const json requests[] = {
      {{"path", (folder.path() / "missing").string()}},
      {{"path", ""}, {"url", (folder.path() / "missing").string()}},
      {{"path", folder.path().string() + '\0'}},
      {{"path", folder.path().string() + '\n'}},
      {{"path", "\xFF"}},
      {{"path", "file:///nowhere"}},
      {{"path", "HTTP://127.0.0.1/"}},  // letter case counts
      {{"path", ""}},
      {{"path", nullptr}},
      json::object(),
  };
  for (const json& request : requests) {
    for (const PathAction action : actions) {
      const json reply = openPath(request, action);
      EXPECT_EQ(reply.at("ok"), false);
      EXPECT_EQ(reply.at("error"), "file not found");
      EXPECT_EQ(reply.at("kind"), "ack");
    }
  }
}

// What cannot be an address is no address: nothing is started, and nothing is wrong.
TEST(OpenUrl, StartsNothingForATextThatIsNoAddress) {
  for (const json& request : {json::object(), json{{"path", ""}, {"url", ""}},
                              json{{"path", std::string("https://a/\0b", 12)}},
                              json{{"url", "https://a/\r\nb"}}, json{{"path", "x\x7Fy"}}}) {
    EXPECT_EQ(openUrl(request).dump(), R"({"kind":"ack","ok":true,"source":"morva-chat"})");
  }
}

TEST(OpenPath, FailsOnATargetThatIsNoText) {
  EXPECT_THROW((void)openPath({{"path", 5}}, PathAction::open), json::type_error);
}

}  // namespace
}  // namespace media::win::chrome_inspect
