#include "doctor/doctor_text.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace media::win::chrome_inspect {
namespace {

Diagnosis sample() {
  return {
      "1.2.3",
      "C:\\x.exe",
      "Windows 10.0.1",
      {{"a", "short", Health::ok, "is well", "", {{"flag", true}}},
       {"b", "much longer", Health::note, "so so", "", {{"ms", std::int64_t{5}}}},
       {"c", "third", Health::problem, "is not", "mend it", {{"path", std::string("C:\\\xFF")}}}}};
}

TEST(DiagnosisTable, HasALineForEachAndARemedyBelow) {
  EXPECT_EQ(diagnosisTable(sample()),
            "morva-chrome-host 1.2.3, Windows 10.0.1\n"
            "C:\\x.exe\n"
            "\n"
            "ok       short        is well\n"
            "note     much longer  so so\n"
            "problem  third        is not\n"
            "                      -> mend it\n"
            "\n"
            "1 problem\n");
}

TEST(DiagnosisTable, EndsWithTheCount) {
  Diagnosis diagnosis = sample();
  diagnosis.findings[1].health = Health::problem;
  EXPECT_TRUE(diagnosisTable(diagnosis).ends_with("\n2 problems\n"));
  for (Finding& finding : diagnosis.findings) finding.health = Health::note;
  EXPECT_TRUE(diagnosisTable(diagnosis).ends_with("\nall is well\n"));
}

TEST(IsWell, NotesAreNoProblem) {
  Diagnosis diagnosis = sample();
  EXPECT_FALSE(isWell(diagnosis));
  diagnosis.findings.pop_back();
  EXPECT_TRUE(isWell(diagnosis));
}

TEST(DiagnosisJson, SaysTheSame) {
  const nlohmann::json whole = nlohmann::json::parse(diagnosisJson(sample()));
  EXPECT_EQ(whole["schema"], 1);
  EXPECT_EQ(whole["name"], "morva-chrome-host");
  EXPECT_EQ(whole["version"], "1.2.3");
  EXPECT_EQ(whole["program"], "C:\\x.exe");
  EXPECT_EQ(whole["system"], "Windows 10.0.1");
  EXPECT_EQ(whole["ok"], false);
  ASSERT_EQ(whole["findings"].size(), 3U);
  EXPECT_EQ(whole["findings"][0],
            nlohmann::json::parse(R"({"id":"a","subject":"short","verdict":"ok","text":"is well",
                                      "remedy":"","facts":{"flag":true}})"));
  EXPECT_EQ(whole["findings"][1]["facts"]["ms"], 5);
  EXPECT_EQ(whole["findings"][2]["verdict"], "problem");
  EXPECT_EQ(whole["findings"][2]["facts"]["path"], "C:\\\xEF\xBF\xBD");
}

}  // namespace
}  // namespace media::win::chrome_inspect
