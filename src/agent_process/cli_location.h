#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

inline constexpr const wchar_t* cliName = L"morva-viewer-cli.exe";
inline constexpr const char* cliNameUtf8 = "morva-viewer-cli.exe";

struct CliLocation {
  std::wstring path;     // of the executable; empty when none was found
  std::string pathUtf8;  // the same, for log lines and messages
};

// Looks for the command-line program in the folder the user saved, the registry, the app execution
// alias and the search path, in this order; the first existing file wins. Each source leaves a line
// in the host log that says why it was taken or passed over; what has not been seen after 5 s is
// not there. May block on standard output: hold no lock. Threads: any.
CliLocation locateCli();

// Looks in one of the sources only, `index` counting in the order above, and leaves no line in the
// log.
enum class CliOutcome { found, missing, notSet, insideWindowsApps, unavailable, notOnPath };
struct CliLook {
  const char* source;  // what its line in the log begins with
  CliOutcome outcome;
  std::wstring path;  // what was looked for, where there was something to look for
};
inline constexpr std::size_t cliSourceCount = 4;
CliLook lookAtCliSource(std::size_t index);

// Whether `path` lies in the store of packaged apps, whose files cannot be started from outside.
// Both separators and any ASCII letter case are understood.
bool isInsideWindowsApps(std::wstring_view path);

}  // namespace media::win::chrome_inspect
