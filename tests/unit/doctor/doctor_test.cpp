#include "doctor/doctor.h"

#include "common/product_version.h"
#include "setup/browsers.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(Diagnose, LooksAtEverythingOnce) {
  const Diagnosis diagnosis = diagnose();
  EXPECT_EQ(diagnosis.version, productVersion);
  EXPECT_NE(diagnosis.program, "");
  EXPECT_NE(diagnosis.system, "");
  std::vector<std::string> wanted = {"agent.port.8090", "agent.port.8094", "toolServer", "pipe",
                                     "folder",          "drops",           "application"};
  for (const Browser& browser : browsers) {
    wanted.push_back(std::string("browser.") + browser.name + ".registration");
  }
  for (const std::string& id : wanted) {
    EXPECT_EQ(std::ranges::count(diagnosis.findings, id, &Finding::id), 1) << id;
  }
  for (const Finding& finding : diagnosis.findings) EXPECT_NE(finding.text, "") << finding.id;
  EXPECT_EQ(std::ranges::find(diagnosis.findings, "toolServer", &Finding::id)->health, Health::ok);
}

TEST(IsWell, NotesAreNoProblem) {
  EXPECT_TRUE(isWell({}));
  EXPECT_TRUE(isWell({{}, {}, {}, {{"a", "a", Health::ok}, {"b", "b", Health::note}}}));
  EXPECT_FALSE(isWell({{}, {}, {}, {{"a", "a", Health::problem}, {"b", "b", Health::ok}}}));
}

}  // namespace
}  // namespace media::win::chrome_inspect
