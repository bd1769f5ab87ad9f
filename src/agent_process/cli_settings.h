#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

// The folder that the user has chosen for the command-line program.
namespace media::win::chrome_inspect {

// Replaces the saved folder; empty clears it. False, and nothing changed, with `error` "invalid
// folder" (over 1,024 bytes, a double quote or a control character in it, not UTF-8), "that folder
// is inside WindowsApps", or "folder does not exist" (also when the system has not answered within
// 5 s).
bool validateAndSaveCliDir(std::string_view dirUtf8, std::string& error);

// How a trial start is made; see probeProcessStart in platform/process.h.
using StartTrial = std::function<bool(const std::wstring& path, std::uint32_t& systemError)>;

// Whether the executable can be started, without running it: "ok", "not found", "win32=" and the
// system's error number, or "timed out" after 3 s. `trial` may run on after that.
std::string probeCliStart(const std::wstring& path, StartTrial trial);
std::string probeCliStart(const std::wstring& path);

// The answer to a set or an apply, without its kind: looks for the program again and tries to start
// it. To be called after validateAndSaveCliDir has succeeded.
nlohmann::json describeCliDir();

// One sentence for the user: about a folder that was saved (empty: cleared), the program that the
// next start uses (empty: none), and what probeCliStart said about it.
std::string cliDirFeedback(const std::wstring& folder, const std::wstring& cli,
                           const std::string& probe);

}  // namespace media::win::chrome_inspect
