#include "support/injection_rules.h"

#include <algorithm>

namespace media::win::chrome_inspect {

const Phrases overridePhrases = {"ignore prior instructions", "ignore previous instructions",
                                 "system override", "ignore safety", "disable sandbox",
                                 "skip consent",
                                 // In the name of somebody who may.
                                 "developer maintenance mode", "new policy: always allow",
                                 "do not tell the user", "authorized maintenance"};
const Phrases credentialPhrases = {
    "~/.ssh", R"(%userprofile%\.ssh)", "%userprofile%/.ssh", R"(\.ssh\)", "/.ssh/", R"(.ssh\)",
    // The keys themselves.
    "id_rsa", "id_ed25519", ".aws/credentials", R"(.aws\credentials)"};
const Phrases exfiltrationPhrases = {
    "upload",  "exfil", "exfiltrate",        "compress-archive", "tar cz",
    "tar -cz", "zip ",  "invoke-restmethod", "invoke-webrequest"};
const Phrases fetchPhrases = {"curl ", "wget ", "iwr ", "download ", "fetch ", "invoke-webrequest"};
const Phrases scriptPhrases = {".sh", ".ps1", ".bat", ".cmd", "bootstrap.sh", "setup-agent"};
const Phrases runPhrases = {" | ",        "&&",     "chmod +x", "bash ",    " sh ",
                            "powershell", "cmd /c", "run it",   "then run", "and run"};
const Phrases pipePhrases = {"| bash", "|bash", "| sh", "|sh", "| sh ", "|| bash"};
const Phrases pipeFetchPhrases = {"curl", "wget", "invoke-webrequest", "iwr "};
const Phrases policyPhrases = {"executionpolicy bypass", "-executionpolicy bypass"};
const Phrases policyTargetPhrases = {".ps1", "http://", "https://"};
const Phrases shellPhrases = {"curl", "wget", "powershell", "cmd /c", "run:"};

std::vector<const Phrases*> allPhraseLists() {
  return {&overridePhrases, &credentialPhrases,   &exfiltrationPhrases, &fetchPhrases,
          &scriptPhrases,   &runPhrases,          &pipePhrases,         &pipeFetchPhrases,
          &policyPhrases,   &policyTargetPhrases, &shellPhrases};
}

namespace {

bool anyIn(const std::string& text, const Phrases& phrases) {
  return std::any_of(phrases.begin(), phrases.end(), [&text](std::string_view phrase) {
    return text.find(phrase) != std::string::npos;
  });
}

bool pipesToShell(const std::string& text) {
  if (anyIn(text, pipePhrases)) return anyIn(text, pipeFetchPhrases);
  return anyIn(text, policyPhrases) && anyIn(text, policyTargetPhrases);
}

}  // namespace

InjectionVerdict classifyNaively(std::string_view original) {
  std::string text(original);
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  const bool override = anyIn(text, overridePhrases);
  const bool secrets = anyIn(text, credentialPhrases);
  const bool sends = anyIn(text, exfiltrationPhrases);
  const bool pipe = pipesToShell(text);
  const bool download =
      anyIn(text, fetchPhrases) && anyIn(text, scriptPhrases) && anyIn(text, runPhrases);
  if (override && (secrets || pipe || download || sends)) {
    return {"instruction_override",
            "page content tries to override agent instructions and coerce shell/exfil actions",
            true};
  }
  if (secrets && sends) {
    return {"ssh_exfil", "page content asks to archive/upload SSH or cloud credentials", true};
  }
  if (pipe) {
    return {"pipe_to_shell", "page content asks to pipe a remote download into a shell", true};
  }
  if (download) {
    return {"download_and_run", "page content asks to download a script and execute it", true};
  }
  if (override && anyIn(text, shellPhrases)) {
    return {"instruction_override",
            "page content tries to override agent instructions toward shell execution", true};
  }
  return {};
}

}  // namespace media::win::chrome_inspect
