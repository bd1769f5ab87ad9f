#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Letting the user choose files and folders. One dialog is open at a time.
namespace media::win::chrome_inspect {

// The acknowledgement of "pickContextPaths": the dialog is shown on a thread of its own, for
// folders when "mode" is "folder", and what is chosen goes to the panel as an "appendContextPaths"
// event. Cancelling sends nothing; a dialog that cannot be had is an "appendText" error line.
nlohmann::json pickContextPaths(const nlohmann::json& request);

// The acknowledgement of "attachContextPaths": "paths" goes back to the panel as an
// "appendContextPaths" event unless it is empty.
nlohmann::json attachContextPaths(const nlohmann::json& request);

// Lets the user choose the folder of the command-line program; blocks until the dialog is closed.
// `path` and `error` are both empty when it was cancelled; else one of them is set. To be called on
// a thread that is not set up for COM.
void pickCliFolder(std::wstring& path, std::string& error);

}  // namespace media::win::chrome_inspect
