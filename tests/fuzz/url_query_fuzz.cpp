// Queries, escapes, file name hints and content types in any bytes, against what must hold for all.

#include "toolserver/url_query.h"

#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "text/utf8.h"
#include "toolserver/access.h"
#include "toolserver/drops.h"
#include "toolserver/local_files.h"

namespace media::win::chrome_inspect {
namespace {

std::string encodeAll(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789aBcDeF";
  std::string encoded;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += digits[byte >> 4U];
    encoded += digits[byte & 0xFU];
  }
  return encoded;
}

void checkDecoding(std::string_view text) {
  const std::string decoded = urlDecode(text);
  require(decoded.size() <= text.size());
  require(urlDecode(encodeAll(text)) == text);
  const std::string_view value = queryParam(text, "name");
  require(value.find('&') == std::string_view::npos);
  require(queryParam("x=1&name=" + encodeAll(text) + "&name=2", "name") == encodeAll(text));
}

void checkName(std::string_view hint) {
  const std::string name = cleanDropName(hint);
  require(!name.empty() && name.size() <= maxDropNameBytes);
  require(name.find_first_of("/\\\"*:<>?|") == std::string::npos);
  require(name.back() != ' ' && name.back() != '.');
  for (const char c : name) require(static_cast<unsigned char>(c) >= 32);
  require(cleanDropName(name) == name);
  // Valid text stays valid where it is cut.
  if (makeValidUtf8(hint) == hint) require(makeValidUtf8(name) == name);
}

}  // namespace

void fuzz(std::string_view input) {
  checkDecoding(input);
  checkName(input);
  require(!contentTypeFor(input).empty());
  require(isTokenRight(input, input) == !input.empty());
}

}  // namespace media::win::chrome_inspect
