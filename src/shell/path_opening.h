#pragma once

#include <nlohmann/json_fwd.hpp>

// Opening files, folders and addresses on the user's desktop. The target is the request's "path",
// or its "url" when that is empty. The shell is called on a thread of its own: it may take its time
// in a dialog or on the network, and the reply says only that it was asked.
namespace media::win::chrome_inspect {

// What is done with a file or a folder that is there.
enum class PathAction { open, reveal, explore };

// The acknowledgement of "openUrlDefault". Any scheme goes to the shell; a target with a control
// character, or that is not UTF-8, starts nothing.
nlohmann::json openUrl(const nlohmann::json& request);

// The acknowledgement of the kinds for paths: "file not found" when there is no such file or
// folder, or the system cannot tell within 5 s. A web address is opened like one. A path that
// stands on its own may have slashes of either kind; another counts from the host's data folder,
// where the agent works too. Exploring a file opens the folder that it is in.
nlohmann::json openPath(const nlohmann::json& request, PathAction action);

}  // namespace media::win::chrome_inspect
