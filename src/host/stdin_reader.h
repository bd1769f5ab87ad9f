#pragma once

#include "channel/framing.h"
#include "host/panel_work.h"

namespace media::win::chrome_inspect {

// Starts reading frames from standard input until it ends, which ends the process with code 0. The
// extension's answers are stored at once for whoever waits for them. Panel messages are answered
// one at a time and in order, by the thread that has read them; a second thread takes over reading
// when an answer takes long, so that a message that waits for the agent holds up nothing else.
// Throws when it cannot read: no memory, no thread. Call once.
void startStdinReader();

// The work of either thread: waits until it is to read `input`, then reads frames and answers panel
// messages until the other thread has taken over reading (true), or nothing more can be read
// (false). Replies to messages that came together may go out together; none is held while it waits.
bool readAndAnswer(FrameReader& input, PanelWork& work);

// Sends the one reply that a message, or its refusal, gets; never throws.
void answerMessage(const PanelMessage& message);

}  // namespace media::win::chrome_inspect
