#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "text/json_parse.h"
#include "text/large_blocks.h"

struct yyjson_val;
struct yyjson_doc;

// JSON texts that are large, or come in great numbers, as a read-only document in one piece of
// memory (yyjson): read five to twenty times as fast as a tree and freed in one call. The library
// is seen by this header's source alone.
namespace media::win::chrome_inspect {

struct JsonMember;
template <class Item>
class JsonRange;

// One value of a document, or none. Cheap to copy; valid as long as its document lives. What it is
// not it answers for as if it were empty: no text, no members, no elements.
class JsonView {
 public:
  JsonView() = default;
  explicit JsonView(const yyjson_val* value) : value_(value) {}

  explicit operator bool() const { return value_ != nullptr; }
  bool isObject() const;
  bool isArray() const;
  bool isString() const;
  bool isNumber() const;
  bool isNull() const;
  bool isTrue() const;
  bool isFalse() const;

  // Members of an object, elements of a list, else 0.
  std::size_t size() const;
  // The member of this name, of several the last; none when there is none. Linear in the members.
  JsonView operator[](std::string_view key) const;
  // The characters of a string.
  std::string_view text() const;

  JsonRange<JsonView> elements() const;
  JsonRange<JsonMember> members() const;

  // Appends the value as compact text; "null" for none.
  void appendTo(std::string& text) const;
  std::string compactText() const;
  // The value as a tree, for what is small; null for none.
  nlohmann::json toValue() const;

 private:
  friend class JsonDocument;
  void append(std::string& text) const;
  const yyjson_val* value_ = nullptr;
};

// Forward iteration over the elements of a list, or the members of an object.
template <class Item>
class JsonIterator {
 public:
  using value_type = Item;
  using difference_type = std::ptrdiff_t;
  using iterator_category = std::input_iterator_tag;

  JsonIterator() = default;
  JsonIterator(const yyjson_val* value, std::size_t left) : value_(value), left_(left) {}
  Item operator*() const;
  JsonIterator& operator++();
  JsonIterator operator++(int) {
    JsonIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const JsonIterator& other) const { return left_ == other.left_; }

 private:
  const yyjson_val* value_ = nullptr;  // an element, or a member's key
  std::size_t left_ = 0;
};

struct JsonMember {
  std::string_view key;
  JsonView value;
};

template <>
JsonView JsonIterator<JsonView>::operator*() const;
template <>
JsonIterator<JsonView>& JsonIterator<JsonView>::operator++();
template <>
JsonMember JsonIterator<JsonMember>::operator*() const;
template <>
JsonIterator<JsonMember>& JsonIterator<JsonMember>::operator++();

// What there is to iterate over.
template <class Item>
class JsonRange {
 public:
  JsonRange(const yyjson_val* first, std::size_t count) : begin_(first, count) {}
  JsonIterator<Item> begin() const { return begin_; }
  JsonIterator<Item> end() const { return {}; }

 private:
  JsonIterator<Item> begin_;
};

// A text that is to be read where it lies, with the room behind it that this takes. Its bytes are
// whatever they were: to be written first.
class JsonBuffer {
 public:
  JsonBuffer() = default;
  // Throws std::bad_alloc.
  explicit JsonBuffer(std::size_t size);
  char* data() { return bytes_.get(); }
  std::size_t size() const { return size_; }
  std::string_view text() const { return {bytes_.get(), size_}; }
  OwnedBlock release() { return std::move(bytes_); }

 private:
  OwnedBlock bytes_;
  std::size_t size_ = 0;
};

// Owns a document. Any number of threads may look at it while none changes it.
class JsonDocument {
 public:
  JsonDocument() = default;

  JsonView root() const;

  // Puts another text in the place of a string of this document. `text` must live as long.
  void replaceText(JsonView string, std::string_view text);

 private:
  struct Free {
    void operator()(yyjson_doc* document) const;
    OwnedBlock text;  // where the strings lie, when it was read in place
  };
  friend ParseOutcome readJson(std::string_view text, JsonDocument& document, std::string& error);
  friend ParseOutcome readJson(JsonBuffer text, JsonDocument& document, std::string& error);
  std::unique_ptr<yyjson_doc, Free> document_;
};

// Reads `text`, which need not live longer than the call, with the outcomes, limits and error texts
// of parseJson: what that takes is taken, with equal values, and nothing else. Throws
// std::bad_alloc.
ParseOutcome readJson(std::string_view text, JsonDocument& document, std::string& error);

// The same for a text that the document keeps: nothing is copied. With `invalid`, `error` is empty,
// since reading in place changes the text.
ParseOutcome readJson(JsonBuffer text, JsonDocument& document, std::string& error);

}  // namespace media::win::chrome_inspect
