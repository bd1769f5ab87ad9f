#include "host/cli_dir_kinds.h"

#include "agent_process/cli_dir.h"
#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

json asking(const std::string& dir) { return {{"dir", dir}}; }

TEST(CliDirKinds, SaveAFolderAndTryIt) {
  const TestFolder folder;
  const std::string dir = toUtf8(folder.path().wstring());
  for (std::string (*const answer)(JsonView) : {answerCliDirSet, answerCliDirApply}) {
    saveCliDir(L"");
    const json reply = replyOf(answer, asking(dir));
    EXPECT_EQ(reply.at("ok"), true);
    EXPECT_EQ(reply.at("kind"), "cliDir");
    EXPECT_EQ(reply.at("dir"), dir);
    EXPECT_TRUE(reply.contains("feedback"));
    EXPECT_EQ(toUtf8(savedCliDir()), dir);
  }
}

TEST(CliDirKinds, TellTheFolderAndKeepItWhenTheNewOneIsRefused) {
  saveCliDir(L"here");
  EXPECT_EQ(answerCliDirGet({}), R"({"dir":"here","kind":"cliDir","ok":true})");
  for (std::string (*const answer)(JsonView) : {answerCliDirSet, answerCliDirApply}) {
    EXPECT_EQ(replyOf(answer, asking("a\"b")).dump(),
              R"({"dir":"here","error":"invalid folder","kind":"cliDir",)"
              R"("ok":false})");
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
