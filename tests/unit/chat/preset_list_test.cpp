#include "chat/preset_list.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string preset(const std::string& id, const std::string& name, bool isDefault) {
  return json{{"id", id}, {"name", name}, {"is_default", isDefault}, {"isDefault", isDefault}}
      .dump();
}

struct ListCase {
  const char* name;
  const char* models;
  std::string presets;
  const char* chosen;
};

const ListCase listCases[] = {
    {"no object", "[]", "[]", ""},
    {"null", "null", "[]", ""},
    {"no data", "{}", "[]", ""},
    {"data that is no array", R"({"data":{"id":"a"}})", "[]", ""},
    {"null data", R"({"data":null})", "[]", ""},
    {"no default: the first", R"({"data":[{"id":"a"},{"id":"b"}]})",
     "[" + preset("a", "a", false) + "," + preset("b", "b", false) + "]", "a"},
    {"the default", R"({"data":[{"id":"a"},{"id":"b","morva_is_default":true}]})",
     "[" + preset("a", "a", false) + "," + preset("b", "b", true) + "]", "b"},
    {"the first of two defaults",
     R"({"data":[{"id":"a","morva_is_default":true},{"id":"b","morva_is_default":true}]})",
     "[" + preset("a", "a", true) + "," + preset("b", "b", true) + "]", "a"},
    {"a preset's own id", R"({"data":[{"id":"a","morva_preset_id":"p","morva_is_default":false}]})",
     "[" + preset("p", "a", false) + "]", "p"},
    {"others are passed over",
     R"({"data":[5,null,"x",[],{},{"id":""},{"id":null},{"id":5},{"id":"a"}]})",
     "[" + preset("a", "a", false) + "]", "a"},
    {"wrong types count as missing",
     R"({"data":[{"id":"a","morva_preset_id":5,"morva_is_default":"true"}]})",
     "[" + preset("a", "a", false) + "]", "a"},
    {"nulls count as missing",
     R"({"data":[{"id":"a","morva_preset_id":null,"morva_is_default":null}]})",
     "[" + preset("a", "a", false) + "]", "a"},
};

TEST(PresetList, IsNormalizedAndHasADefault) {
  for (const ListCase& c : listCases) {
    SCOPED_TRACE(c.name);
    const json presets = normalizePresetList(json::parse(c.models));
    EXPECT_EQ(presets.dump(), c.presets);
    EXPECT_EQ(defaultPresetId(presets), c.chosen);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
