#include "doctor/doctor.h"

#include <algorithm>
#include <iterator>

#include "common/product_version.h"
#include "doctor/agent_findings.h"
#include "doctor/browser_findings.h"
#include "doctor/place_findings.h"
#include "platform/system_facts.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t portLimitMs = 5000;

void append(Findings& findings, Findings more) {
  std::ranges::move(more, std::back_inserter(findings));
}

}  // namespace

Diagnosis diagnose() {
  Diagnosis diagnosis;
  std::wstring program;
  (void)ownProgramPath(program);  // without it no manifest is found to name this program
  diagnosis.version = productVersion;
  diagnosis.program = toUtf8(program);
  diagnosis.system = systemVersion();
  append(diagnosis.findings, judgeBrowsers(lookAtBrowsers(program)));
  append(diagnosis.findings, judgeAgent(lookAtCliSources(), askAgentPorts(portLimitMs)));
  const FolderState folder = lookAtFolder();
  append(
      diagnosis.findings,
      {judgeToolServer(lookAtToolServer()), judgePipe(lookAtPipe()), judgeFolder(folder),
       judgeDrops(folder), judgeCrashes(lookAtCrashes()), judgeApplication(lookAtApplication())});
  return diagnosis;
}

bool isWell(const Diagnosis& diagnosis) {
  return std::ranges::none_of(
      diagnosis.findings, [](const Finding& finding) { return finding.health == Health::problem; });
}

}  // namespace media::win::chrome_inspect
