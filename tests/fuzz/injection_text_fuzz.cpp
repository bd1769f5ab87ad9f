// Any text against the rules written out naively, in its own letter case and in another.

#include "screening/injection_text.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/injection_rules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const InjectionVerdict verdict = classifyInjectionText(text);
  const InjectionVerdict wanted = classifyNaively(text);
  std::string capitals(text);
  for (char& c : capitals) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  const bool same = verdict.kind == wanted.kind && verdict.reason == wanted.reason &&
                    verdict.detected == wanted.detected;
  if (!same || classifyInjectionText(capitals).reason != wanted.reason) std::abort();
  return 0;
}
