#pragma once

namespace media::win::chrome_inspect {

// Puts the process into the state in which a host without a window must run: no crash or
// "insert disk" boxes, a write to a closed pipe is an error and not a signal, standard streams that
// pass bytes unchanged. Called once, first thing in main.
void prepareProcess();

// Ends the process now with `code`. Other threads are cut off where they are; nothing of ours is
// destroyed and no exit handler runs. The caller holds no lock.
[[noreturn]] void exitProcess(unsigned code);

// The same without the system's own steps at the end of a process, which wait for other threads:
// for when one of them may hold what is waited for.
[[noreturn]] void endProcessNow(unsigned code);

}  // namespace media::win::chrome_inspect
