#include "shell/pickers.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

TEST(AttachContextPaths, HandsThePathsBackAsOneArgument) {
  CapturedOutput output;
  for (const json& paths :
       {json::array(), json(nullptr), json("a"), json(5), json({{"a", 1}}), json()}) {
    EXPECT_EQ(attachContextPaths({{"paths", paths}}).at("ok"), true);
  }
  EXPECT_EQ(attachContextPaths(json::object()).at("ok"), true);
  EXPECT_EQ(attachContextPaths({{"paths", {"a", "b"}}}).dump(),
            R"({"kind":"ack","ok":true,"source":"morva-chat"})");
  EXPECT_EQ(attachContextPaths({{"paths", {5, nullptr}}}).at("ok"), true);
  EXPECT_EQ(eventsIn(output.finish()),
            (std::vector<std::string>{R"({"args":[["a","b"]],"method":"appendContextPaths"})",
                                      R"({"args":[[5,null]],"method":"appendContextPaths"})"}));
}

}  // namespace
}  // namespace media::win::chrome_inspect
