#pragma once

#include <nlohmann/json_fwd.hpp>

namespace media::win::chrome_inspect {

// What the panel last said about the user's browser: null before the first word, then an object.
// What is no object is kept as an empty one. Threads: any.
void setBrowserContext(const nlohmann::json& browser);
nlohmann::json browserContext();

}  // namespace media::win::chrome_inspect
