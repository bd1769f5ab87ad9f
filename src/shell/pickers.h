#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Letting the user choose files and folders. One dialog is open at a time.
namespace media::win::chrome_inspect {

// Shows a dialog for files, or for folders, on a thread of its own and returns at once; the chosen
// paths go to the panel as an "appendContextPaths" event. Cancelling sends nothing; a dialog that
// cannot be shown is reported by an "appendText" error line.
void pickContextPaths(bool folders);

// Sends an array of paths, unless it is empty, to the panel as an "appendContextPaths" event. May
// block on standard output.
void attachContextPaths(const nlohmann::json& paths);

// Lets the user choose the folder of the command-line program; blocks until the dialog is closed.
// `path` and `error` are both empty when it was cancelled; else one of them is set. To be called on
// a thread that is not set up for COM.
void pickCliFolder(std::wstring& path, std::string& error);

}  // namespace media::win::chrome_inspect
