#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace media::win::chrome_inspect {

// The chat presets in the agent's answer to "/v1/models": an array of {"id", "name", "is_default",
// "isDefault"}, one for each object in "data" that has an id; members of a wrong type count as
// missing, anything else is passed over.
nlohmann::json normalizePresetList(const nlohmann::json& models);

// The id of the first default entry of such an array, else of the first; empty when there is none.
std::string defaultPresetId(const nlohmann::json& presets);

}  // namespace media::win::chrome_inspect
