#pragma once

#include <string>
#include <string_view>

#include "text/json_view.h"

// JSON written as text, piece by piece, into a string that may be used again: what is composed on
// the roads that carry much. Everything else is built as a value and dumped.
namespace media::win::chrome_inspect {

// Appends `text`, which must be UTF-8, as a JSON string.
void appendQuoted(std::string& json, std::string_view text);

// Writes an object or a list, up to `end`. Keys and texts must be UTF-8.
class JsonObjectText {
 public:
  explicit JsonObjectText(std::string& json) : json_(json) { json_ += '{'; }
  // Begins a member; the caller appends its value to what is returned.
  std::string& member(std::string_view key);
  void view(std::string_view key, JsonView value) { value.appendTo(member(key)); }
  void text(std::string_view key, std::string_view value) { appendQuoted(member(key), value); }
  void flag(std::string_view key, bool value) { member(key) += value ? "true" : "false"; }
  void number(std::string_view key, std::size_t value) { member(key) += std::to_string(value); }
  // The members of another object, which is whole and not empty, as text.
  void members(std::string_view object);
  void end() { json_ += '}'; }

 private:
  std::string& json_;
  bool first_ = true;
};

class JsonListText {
 public:
  explicit JsonListText(std::string& json) : json_(json) { json_ += '['; }
  // Begins an element; the caller appends its value to what is returned.
  std::string& element();
  void end() { json_ += ']'; }

 private:
  std::string& json_;
  bool first_ = true;
};

}  // namespace media::win::chrome_inspect
