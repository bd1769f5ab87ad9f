#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// Makes up results of browser tools as an extension might send them, well formed or not. The same
// numbers make the same pages. `Next` is called for random numbers; nothing but zeros would never
// come to an end, nothing but ones makes small pages.
class RandomPage {
 public:
  using Next = std::uint32_t (*)(void* source);
  RandomPage(Next next, void* source) : next_(next), source_(source) {}

  // A result of one of the tools. When `wellFormed`, every member has the type that the extension
  // uses; else any part may be anything.
  nlohmann::json result(bool wellFormed);
  // The text that every "pageText" holds, so that a test finds it wherever it got to.
  static constexpr std::string_view pageText = "the text of the page";

 private:
  std::uint32_t below(std::uint32_t limit) { return next_(source_) % limit; }
  bool once(std::uint32_t in) { return below(in) == 0; }
  std::string text(const std::string& pattern);
  // Lists are shorter than `longest`, and those inside them short.
  nlohmann::json varied(const nlohmann::json& whole, std::uint32_t longest = 20);

  Next next_;
  void* source_;
  bool wellFormed_ = true;
};

}  // namespace media::win::chrome_inspect
