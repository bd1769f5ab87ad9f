#include "toolserver/url_query.h"

#include <algorithm>

#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

// The byte that the escape at `at` stands for, or -1 when there is no escape.
int escapedByte(std::string_view text, std::size_t at) {
  if (text[at] != '%' || at + 2 >= text.size()) return -1;
  const int high = hexDigitValue(text[at + 1]);
  const int low = hexDigitValue(text[at + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

}  // namespace

std::string_view queryParam(std::string_view query, std::string_view name) {
  while (!query.empty()) {
    const std::string_view piece = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(piece.size() + 1, query.size()));
    if (piece.size() > name.size() && piece.starts_with(name) && piece[name.size()] == '=') {
      return piece.substr(name.size() + 1);
    }
  }
  return {};
}

std::string urlDecode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const int byte = escapedByte(text, at);
    if (byte >= 0) at += 2;
    decoded += byte >= 0 ? static_cast<char>(byte) : text[at] == '+' ? ' ' : text[at];
  }
  return decoded;
}

}  // namespace media::win::chrome_inspect
