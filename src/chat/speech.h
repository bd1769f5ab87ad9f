#pragma once

#include <string>

// Has the agent read text aloud. Both return at once; events report to the panel what comes of it.
namespace media::win::chrome_inspect {

enum class SpeechControl { pause, resume, stop };

// Sends "ttsStarted", has the text spoken on a thread of its own, which shows a failure as an error
// line, and sends "ttsDone": when the agent has answered, for which it has 10 minutes, or the
// reading was stopped. An empty text does nothing. False when no thread could be started; the panel
// has got both events.
bool startSpeech(const std::string& text);

// Posts a control to the agent, if one is known, and sends its event to the panel, on a thread of
// its own and in the order of these calls. A stop first ends every reading that has begun, whatever
// the agent does. False, and nothing else is done, when no thread could be started.
bool controlSpeech(SpeechControl control);

}  // namespace media::win::chrome_inspect
