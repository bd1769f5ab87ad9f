#pragma once

namespace media::win::chrome_inspect {

// Reads frames from standard input until it ends, then ends the process with code 0. The
// extension's answers go to whoever waits for them, at once; panel messages go, one at a time and
// in order, to a thread of their own, so that one that waits for the agent holds up nothing else.
// Takes the calling thread; call once.
[[noreturn]] void runStdinReader();

}  // namespace media::win::chrome_inspect
