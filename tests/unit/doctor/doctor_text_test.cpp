#include "doctor/doctor_text.h"

#include "support/testing.h"

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

TEST(DiagnosisJson, HoldsTheSameFacts) {
  EXPECT_EQ(nlohmann::json::parse(diagnosisJson(sample())), nlohmann::json::parse(R"({
      "schema":1,"name":"morva-chrome-host","version":"1.2.3","program":"C:\\x.exe",
      "system":"Windows 10.0.1","ok":false,"findings":[
      {"id":"a","subject":"short","verdict":"ok","text":"is well","remedy":"",
       "facts":{"flag":true}},
      {"id":"b","subject":"much longer","verdict":"note","text":"so so","remedy":"",
       "facts":{"ms":5}},
      {"id":"c","subject":"third","verdict":"problem","text":"is not","remedy":"mend it",
       "facts":{"path":"C:\\\ufffd"}}]})"));
}

}  // namespace
}  // namespace media::win::chrome_inspect
