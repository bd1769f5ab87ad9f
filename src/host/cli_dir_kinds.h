#pragma once

#include <nlohmann/json_fwd.hpp>

// The settings page's messages about the folder of the command-line program. Each answer is of the
// kind "cliDir".
namespace media::win::chrome_inspect {

nlohmann::json replyCliDirGet(const nlohmann::json& request);

// Saves the folder "dir" and tries the program that the next start uses.
nlohmann::json replyCliDirSet(const nlohmann::json& request);

// The same; besides, an agent that the host started and that no turn uses is ended, so that the
// next one is started from there.
nlohmann::json replyCliDirApply(const nlohmann::json& request);

// Shows the folder picker on a thread of its own, which answers when the user is done: like a set
// of the chosen folder, or, when nothing was chosen, like a get. Null: no reply for now.
nlohmann::json replyCliDirBrowse(const nlohmann::json& request);

}  // namespace media::win::chrome_inspect
