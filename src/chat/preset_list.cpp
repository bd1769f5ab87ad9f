#include "chat/preset_list.h"

#include <nlohmann/json.hpp>

#include "text/json_read.h"

namespace media::win::chrome_inspect {

using nlohmann::json;

json normalizePresetList(const json& models) {
  json presets = json::array();
  const json* data = findArray(models, "data");
  if (data == nullptr) return presets;
  for (const json& model : *data) {
    const std::string_view id = lenientText(model, "id");
    if (id.empty()) continue;
    const bool isDefault = lenientBool(model, "morva_is_default", false);
    presets.push_back({{"id", lenientText(model, "morva_preset_id", id)},
                       {"name", id},
                       {"is_default", isDefault},
                       {"isDefault", isDefault}});
  }
  return presets;
}

std::string defaultPresetId(const json& presets) {
  for (const json& preset : presets) {
    if (lenientBool(preset, "is_default", false)) return std::string(lenientText(preset, "id"));
  }
  return presets.empty() ? std::string() : std::string(lenientText(presets.front(), "id"));
}

}  // namespace media::win::chrome_inspect
