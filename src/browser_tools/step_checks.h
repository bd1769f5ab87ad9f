#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Which instructions of the agent are passed on to the browser. Pure functions; they change
// nothing.
namespace media::win::chrome_inspect {

// Whether the arguments of a batch may be passed on: 1 to 32 steps of the kinds that a batch may
// hold, further batches at most to depth 4. `depth` is that of this batch. The first refused step
// decides.
bool validateBatchSteps(const nlohmann::json& arguments, int depth);

// The action that a navigation means: the one it names, else "goto" for an address and "tabs"
// otherwise.
std::string navigateAction(const nlohmann::json& arguments);
bool isNavigateAction(const std::string& action);

}  // namespace media::win::chrome_inspect
