#pragma once

#include <string>

namespace media::win::chrome_inspect {

struct CrashPlan {
  // What the path of the file begins with; the time and the process's id follow, as
  // "20261122T084455Z-1234.dmp", in UTC.
  std::wstring prefix;
  void (*makeFolder)() = nullptr;  // called when the file could not be made; it is tried once more
  void (*afterwards)() = nullptr;  // called when the file is written
};

// From now on an exception that nobody handles, or std::terminate, on any thread, writes the stacks
// of all threads and the list of loaded libraries into a file, before the process ends with the
// code that it would have had; that takes two minutes at most. Until then nothing is loaded or kept
// for it but the plan. What the plan names runs on a thread of its own, while the process is
// broken. Once per process. Windows side: MiniDumpWriteDump (learn.microsoft.com,
// minidumpapiset.h), with MiniDumpNormal. POSIX: nothing, the system has its own way to keep cores.
void traceCrashes(CrashPlan plan);

}  // namespace media::win::chrome_inspect
