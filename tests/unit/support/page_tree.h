#pragma once

#include <nlohmann/json_fwd.hpp>

namespace media::win::chrome_inspect {

// What the agent gets of the result `page`, an object, by functions over trees: slow and plain. The
// host must make the same of any page. Throws
// nlohmann::json::type_error when "prompt_injection_detected" is there and no boolean.
nlohmann::json pageResultByTree(nlohmann::json page);

}  // namespace media::win::chrome_inspect
