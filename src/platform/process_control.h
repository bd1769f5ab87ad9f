#pragma once

namespace media::win::chrome_inspect {

// Puts the process into the state in which a host without a window must run: no crash or
// "insert disk" boxes, a write to a closed pipe is an error and not a signal, standard streams that
// pass bytes unchanged. Called once, first thing in main.
void prepareProcess();

// Ends the process now with `code`. Other threads are cut off where they are; nothing of ours is
// destroyed, and no exit handler and no library's clean-up runs, which could wait for a lock that
// another thread held when it was cut off (learn.microsoft.com, ExitProcess, "Remarks").
[[noreturn]] void exitProcess(unsigned code);

}  // namespace media::win::chrome_inspect
