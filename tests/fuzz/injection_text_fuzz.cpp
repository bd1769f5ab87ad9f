// Any text against the rules written out naively, in its own letter case and in another.

#include "screening/injection_text.h"

#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "support/injection_rules.h"

namespace media::win::chrome_inspect {

void fuzz(std::string_view text) {
  const InjectionVerdict verdict = classifyInjectionText(text);
  const InjectionVerdict wanted = classifyNaively(text);
  std::string capitals(text);
  for (char& c : capitals) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  require(verdict.kind == wanted.kind && verdict.reason == wanted.reason);
  require(verdict.detected == wanted.detected);
  require(classifyInjectionText(capitals).reason == wanted.reason);
}

}  // namespace media::win::chrome_inspect
