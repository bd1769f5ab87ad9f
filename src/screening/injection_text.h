#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "screening/phrase_matcher.h"

namespace media::win::chrome_inspect {

// What the screening says of a text or a page.
struct InjectionVerdict {
  std::string kind;    // "instruction_override", "ssh_exfil", "pipe_to_shell", "download_and_run"
  std::string reason;  // for people
  bool detected = false;
};

// Judges a text by fixed phrases, ASCII letter case aside: does it ask the agent to ignore its
// instructions, to pipe a download into a shell, to download and run something, or to send
// credentials away? It finds what is written plainly, no more. Linear in the text; threads: any.
InjectionVerdict classifyInjectionText(std::string_view text);

// The same in two steps, for a text in pieces that no phrase reaches across: what is found in each,
// as bits to be joined, and what it amounts to.
std::uint32_t injectionGroups(std::string_view text);
InjectionVerdict injectionVerdict(std::uint32_t groups);

// The phrases that it searches for.
std::span<const Phrase> injectionPhrases();

}  // namespace media::win::chrome_inspect
