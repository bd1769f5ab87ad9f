#pragma once

#include <string>
#include <string_view>

// Opening files, folders and addresses on the user's desktop. The shell is called on a thread of
// its own, as it may take its time in a dialog or on the network: success means only that the call
// was started. At most 16 calls run at a time; past that the error is "too many programs are being
// opened".
namespace media::win::chrome_inspect {

// What is done with a file or a folder that is there.
enum class PathAction { open, reveal, explore };

// Opens an address, of any scheme. A target with a control character, or that is not UTF-8, starts
// nothing and is no failure.
bool openUrl(std::string_view target, std::string& error);

// Opens a file or a folder: "file not found" when there is none, or the system has not found it
// within 5 s. A web address is opened like one. A path that stands on its own may have slashes of
// either kind; another is relative to the host's data folder, where the agent works too. Exploring
// a file opens the folder that it is in.
bool openPath(std::string_view target, PathAction action, std::string& error);

}  // namespace media::win::chrome_inspect
