#pragma once

#include <string>

#include "text/json_view.h"

// The settings page's messages about the folder of the command-line program. Each function returns
// the reply, of the kind "cliDir".
namespace media::win::chrome_inspect {

std::string answerCliDirGet(JsonView request);

// Saves the folder "dir" and tries the program that the next start uses.
std::string answerCliDirSet(JsonView request);

// The same; besides, an agent that the host started and that nobody uses is ended and reported
// as gone, so that the next one is started from there.
std::string answerCliDirApply(JsonView request);

// Shows the folder picker on a thread of its own, which sends the reply when the user has closed
// it: that of a set of the chosen folder, or, when nothing was chosen, that of a get. Returns "",
// or the reply when there is no such thread.
std::string answerCliDirBrowse(JsonView request);

}  // namespace media::win::chrome_inspect
