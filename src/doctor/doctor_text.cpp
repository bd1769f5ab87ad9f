#include "doctor/doctor_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/product_names.h"
#include "doctor/finding.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::ordered_json;

constexpr int schemaVersion = 1;
constexpr std::size_t verdictWidth = 9;
constexpr std::size_t columnGap = 2;

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

const char* wordOf(Health health) {
  switch (health) {
    case Health::ok:
      return "ok";
    case Health::note:
      return "note";
    case Health::problem:
      break;
  }
  return "problem";
}

std::size_t problemsIn(const Diagnosis& diagnosis) {
  return static_cast<std::size_t>(
      std::ranges::count(diagnosis.findings, Health::problem, &Finding::health));
}

std::string lastLine(std::size_t problems) {
  if (problems == 0) return "all is well\n";
  return std::to_string(problems) + (problems == 1 ? " problem\n" : " problems\n");
}

ordered_json jsonOf(const Finding& finding) {
  ordered_json facts = ordered_json::object();
  for (const Fact& fact : finding.facts) {
    std::visit([&](const auto& value) { facts[fact.name] = value; }, fact.value);
  }
  return {{"id", finding.id},     {"subject", finding.subject}, {"verdict", wordOf(finding.health)},
          {"text", finding.text}, {"remedy", finding.remedy},   {"facts", facts}};
}

// What an MCP client's configuration has to say about this program.
ordered_json mcpConfiguration(const Diagnosis& diagnosis) {
  return {
      {"mcpServers",
       {{"browser", {{"command", diagnosis.program}, {"args", ordered_json::array({"--mcp"})}}}}}};
}

std::string dump(const ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string diagnosisTable(const Diagnosis& diagnosis) {
  std::size_t subjectWidth = 0;
  for (const Finding& finding : diagnosis.findings) {
    subjectWidth = std::max(subjectWidth, finding.subject.size() + columnGap);
  }
  std::string table = std::string(programName) + " " + diagnosis.version + ", " + diagnosis.system +
                      "\n" + diagnosis.program + "\n\n";
  for (const Finding& finding : diagnosis.findings) {
    table += padded(wordOf(finding.health), verdictWidth) + padded(finding.subject, subjectWidth) +
             finding.text + "\n";
    if (finding.remedy.empty()) continue;
    table += std::string(verdictWidth + subjectWidth, ' ') + "-> " + finding.remedy + "\n";
  }
  return table + "\nfor the configuration of an MCP client:\n" +
         dump(mcpConfiguration(diagnosis), -1) + "\n" + lastLine(problemsIn(diagnosis));
}

std::string diagnosisJson(const Diagnosis& diagnosis) {
  ordered_json findings = ordered_json::array();
  for (const Finding& finding : diagnosis.findings) findings.push_back(jsonOf(finding));
  const ordered_json whole = {{"schema", schemaVersion},      {"name", programName},
                              {"version", diagnosis.version}, {"program", diagnosis.program},
                              {"system", diagnosis.system},   {"ok", isWell(diagnosis)},
                              {"findings", findings},         {"mcp", mcpConfiguration(diagnosis)}};
  return dump(whole, 2);
}

}  // namespace media::win::chrome_inspect
