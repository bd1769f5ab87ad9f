#include "screening/injection_text.h"

#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

enum Group : std::uint32_t {
  overrides = 1U << 0U,
  credentials = 1U << 1U,
  exfiltrates = 1U << 2U,
  fetches = 1U << 3U,         // download and run needs all three of
  namesScript = 1U << 4U,     // these
  runs = 1U << 5U,            //
  pipes = 1U << 6U,           // a pipe into a shell needs one of
  pipeFetches = 1U << 7U,     // each
  bypassesPolicy = 1U << 8U,  // the second form of a pipe into a shell needs one of
  policyTarget = 1U << 9U,    // each
  namesShell = 1U << 10U,
};

// Blanks and punctuation count.
constexpr Phrase phrases[] = {
    {"ignore prior instructions", overrides},
    {"ignore previous instructions", overrides},
    {"system override", overrides},
    {"ignore safety", overrides},
    {"disable sandbox", overrides},
    {"skip consent", overrides},
    {"developer maintenance mode", overrides},
    {"new policy: always allow", overrides},
    {"do not tell the user", overrides},
    {"authorized maintenance", overrides},

    {"~/.ssh", credentials},
    {"%userprofile%\\.ssh", credentials},
    {"%userprofile%/.ssh", credentials},
    {"\\.ssh\\", credentials},
    {"/.ssh/", credentials},
    {".ssh\\", credentials},
    {"id_rsa", credentials},
    {"id_ed25519", credentials},
    {".aws/credentials", credentials},
    {".aws\\credentials", credentials},

    {"upload", exfiltrates},
    {"exfil", exfiltrates},
    {"exfiltrate", exfiltrates},
    {"compress-archive", exfiltrates},
    {"tar cz", exfiltrates},
    {"tar -cz", exfiltrates},
    {"zip ", exfiltrates},
    {"invoke-restmethod", exfiltrates},
    {"invoke-webrequest", exfiltrates | fetches | pipeFetches},

    {"curl ", fetches},
    {"wget ", fetches},
    {"iwr ", fetches | pipeFetches},
    {"download ", fetches},
    {"fetch ", fetches},

    {".sh", namesScript},
    {".ps1", namesScript | policyTarget},
    {".bat", namesScript},
    {".cmd", namesScript},
    {"bootstrap.sh", namesScript},
    {"setup-agent", namesScript},

    {" | ", runs},
    {"&&", runs},
    {"chmod +x", runs},
    {"bash ", runs},
    {" sh ", runs},
    {"powershell", runs | namesShell},
    {"cmd /c", runs | namesShell},
    {"run it", runs},
    {"then run", runs},
    {"and run", runs},

    {"| bash", pipes},
    {"|bash", pipes},
    {"| sh", pipes},
    {"|sh", pipes},
    {"| sh ", pipes},
    {"|| bash", pipes},

    {"curl", pipeFetches | namesShell},
    {"wget", pipeFetches | namesShell},

    {"executionpolicy bypass", bypassesPolicy},
    {"-executionpolicy bypass", bypassesPolicy},
    {"http://", policyTarget},
    {"https://", policyTarget},

    {"run:", namesShell},
};

const PhraseMatcher& matcher() {
  static const PhraseMatcher& built = leaked<PhraseMatcher>(phrases);
  return built;
}

// A pipe that fetches nothing settles the matter: the second form is then not looked at.
bool pipesToShell(std::uint32_t found) {
  if ((found & pipes) != 0) return (found & pipeFetches) != 0;
  return (found & bypassesPolicy) != 0 && (found & policyTarget) != 0;
}

bool downloadsAndRuns(std::uint32_t found) {
  constexpr std::uint32_t all = fetches | namesScript | runs;
  return (found & all) == all;
}

InjectionVerdict detectedAs(const char* kind, const char* reason) { return {kind, reason, true}; }

}  // namespace

std::span<const Phrase> injectionPhrases() { return phrases; }

std::uint32_t injectionGroups(std::string_view text) { return matcher().groupsIn(text); }

InjectionVerdict classifyInjectionText(std::string_view text) {
  return injectionVerdict(injectionGroups(text));
}

InjectionVerdict injectionVerdict(std::uint32_t found) {
  if (found == 0) return {};
  const bool override = (found & overrides) != 0;
  const bool secrets = (found & credentials) != 0;
  const bool sends = (found & exfiltrates) != 0;
  const bool pipe = pipesToShell(found);
  const bool download = downloadsAndRuns(found);
  if (override && (secrets || pipe || download || sends)) {
    return detectedAs("instruction_override",
                      "page content tries to override agent instructions and coerce shell/exfil "
                      "actions");
  }
  if (secrets && sends) {
    return detectedAs("ssh_exfil", "page content asks to archive/upload SSH or cloud credentials");
  }
  if (pipe) {
    return detectedAs("pipe_to_shell", "page content asks to pipe a remote download into a shell");
  }
  if (download) {
    return detectedAs("download_and_run", "page content asks to download a script and execute it");
  }
  if (override && (found & namesShell) != 0) {
    return detectedAs("instruction_override",
                      "page content tries to override agent instructions toward shell execution");
  }
  return {};
}

}  // namespace media::win::chrome_inspect
