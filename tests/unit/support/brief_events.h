#pragma once

#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// The panel events in frames as one text, "method args; method args", in which the ids of run "r"
// and of chat session "c" are left out. Log lines are left out, too.
std::string briefEvents(const CapturedOutput::Frames& frames);

// Waits until as much has been sent, and expects it to be these events.
void expectBrief(CapturedOutput& output, const std::string& events);

}  // namespace media::win::chrome_inspect
