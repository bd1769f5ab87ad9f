// What the doctor finds, and how it is written.
#include "doctor/doctor.h"

#include "common/product_version.h"
#include "doctor/doctor_text.h"
#include "setup/browsers.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(Diagnose, LooksAtEverythingOnce) {
  const Diagnosis diagnosis = diagnose();
  EXPECT_EQ(diagnosis.version, productVersion);
  EXPECT_NE(diagnosis.program, "");
  EXPECT_NE(diagnosis.system, "");
  std::vector<std::string> wanted = {
      "agent.port.8090", "agent.port.8094", "toolServer", "pipe",
      "folder",          "drops",           "crashes",    "application"};
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

Diagnosis sample() {
  return {
      "1.2.3",
      "C:\\m\xC3\xB6rva.exe",
      "Windows 10.0.1",
      {{"a", "short", Health::ok, "is well", "", {{"flag", true}}},
       {"b", "much longer", Health::note, "so so", "", {{"ms", std::int64_t{5}}}},
       {"c", "third", Health::problem, "is not", "mend it", {{"path", std::string("C:\\\xFF")}}}}};
}

TEST(DiagnosisTable, HasALineForEachAndARemedyBelow) {
  EXPECT_EQ(
      diagnosisTable(sample()),
      "morva-chrome-host 1.2.3, Windows 10.0.1\n"
      "C:\\m\xC3\xB6rva.exe\n"
      "\n"
      "ok       short        is well\n"
      "note     much longer  so so\n"
      "problem  third        is not\n"
      "                      -> mend it\n"
      "\n"
      "for the configuration of an MCP client:\n"
      "{\"mcpServers\":{\"browser\":{\"command\":\"C:\\\\m\xC3\xB6rva.exe\",\"args\":[\"--mcp\"]}}}"
      "\n\n"
      "1 problem\n");
}

TEST(DiagnosisTable, EndsWithTheCount) {
  Diagnosis diagnosis = sample();
  diagnosis.findings[1].health = Health::problem;
  EXPECT_TRUE(diagnosisTable(diagnosis).ends_with("\n2 problems\n"));
  for (Finding& finding : diagnosis.findings) finding.health = Health::note;
  EXPECT_TRUE(diagnosisTable(diagnosis).ends_with("\nall is well\n"));
}

TEST(DiagnosisJson, HoldsTheSameFacts) {
  EXPECT_EQ(nlohmann::json::parse(diagnosisJson(sample())), nlohmann::json::parse(R"({
      "schema":1,"name":"morva-chrome-host","version":"1.2.3","program":"C:\\m\u00f6rva.exe",
      "system":"Windows 10.0.1","ok":false,"findings":[
      {"id":"a","subject":"short","verdict":"ok","text":"is well","remedy":"",
       "facts":{"flag":true}},
      {"id":"b","subject":"much longer","verdict":"note","text":"so so","remedy":"",
       "facts":{"ms":5}},
      {"id":"c","subject":"third","verdict":"problem","text":"is not","remedy":"mend it",
       "facts":{"path":"C:\\\ufffd"}}],
      "mcp":{"mcpServers":{"browser":{"command":"C:\\m\u00f6rva.exe","args":["--mcp"]}}}})"));
}

}  // namespace
}  // namespace media::win::chrome_inspect
