#pragma once

#include <string>

// Has the agent read text aloud. Both return at once; what comes of it the panel learns by events.
namespace media::win::chrome_inspect {

enum class SpeechControl { pause, resume, stop };

// Tells the panel "ttsStarted", then speaks on a thread of its own and ends with "ttsDone"; an
// empty text does nothing. False when there is no thread to be had.
bool startSpeech(const std::string& text);

// Passes a control on to the agent, if one is known, and tells the panel. Controls reach the agent
// in the order of these calls. False when there is no thread to be had.
bool controlSpeech(SpeechControl control);

}  // namespace media::win::chrome_inspect
