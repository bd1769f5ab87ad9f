#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>

// Cuts what the extension returns of a page down to what the agent needs: known keys, short lists,
// no page text. Values of an unexpected shape pass through unchanged. Pure functions; they move
// what they keep out of their argument.
namespace media::win::chrome_inspect {

// Compacts the result of a browser tool by the tool it names; one that names none of the eight is
// returned as it is.
nlohmann::json compactBrowserResult(nlohmann::json result);

// Compacts the "data" of a read or find result: with the items (`detailed`), or only counted.
nlohmann::json compactPageData(nlohmann::json data, bool detailed);

// The items of a read result that the agent gets: first those a person would act on, then the
// others, each in page order, at most `budget`.
nlohmann::json selectReadItems(nlohmann::json items, std::size_t budget);
bool isKeyItem(const nlohmann::json& item);

nlohmann::json compactItem(nlohmann::json item);
nlohmann::json summarizeScope(nlohmann::json scope);
nlohmann::json compactZoneHint(nlohmann::json hint);

// The results of the acting tools, and of a batch.
nlohmann::json compactActionResult(nlohmann::json result);
nlohmann::json compactBatchResult(nlohmann::json result);

}  // namespace media::win::chrome_inspect
