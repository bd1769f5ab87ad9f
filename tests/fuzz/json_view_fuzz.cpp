// Any text: a document is made of what the tree is made of, whether the text is kept or read where
// it lies, with equal values, also once it is written again; and nothing else.

#include "text/json_view.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {

void fuzz(std::string_view text) {
  nlohmann::json tree;
  std::string wantedError;
  const ParseOutcome wanted = parseJson(text, tree, wantedError);
  JsonBuffer buffer(text.size());
  text.copy(buffer.data(), text.size());
  JsonDocument kept;
  JsonDocument inPlace;
  std::string error;
  require(readJson(std::move(buffer), inPlace, error) == wanted);
  require(error.empty() || error == wantedError);
  require(readJson(text, kept, error) == wanted && error == wantedError);
  if (wanted != ParseOutcome::ok) return;
  for (const JsonDocument* document : {&kept, &inPlace}) {
    require(document->root().toValue() == tree);
    require(nlohmann::json::parse(document->root().compactText()) == tree);
  }
}

}  // namespace media::win::chrome_inspect
