#pragma once

#include <nlohmann/json_fwd.hpp>

// The settings page's messages about the folder of the command-line program. Each function returns
// the reply, of the kind "cliDir".
namespace media::win::chrome_inspect {

nlohmann::json answerCliDirGet(const nlohmann::json& request);

// Saves the folder "dir" and tries the program that the next start uses.
nlohmann::json answerCliDirSet(const nlohmann::json& request);

// The same; besides, an agent that the host started and that nobody uses is ended and reported
// as gone, so that the next one is started from there.
nlohmann::json answerCliDirApply(const nlohmann::json& request);

// Shows the folder picker on a thread of its own, which sends the reply when the user has closed
// it: that of a set of the chosen folder, or, when nothing was chosen, that of a get. Returns null,
// or the reply when there is no such thread.
nlohmann::json answerCliDirBrowse(const nlohmann::json& request);

}  // namespace media::win::chrome_inspect
