#include "text/json_view.h"

#include <yyjson.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>

#include "text/ascii.h"
#include "text/byte_block.h"
#include "text/json_limits.h"
#include "text/json_text.h"
#include "text/lone_surrogates.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The library takes pointers to mutable values everywhere and changes none of them.
yyjson_val* asMutable(const yyjson_val* value) { return const_cast<yyjson_val*>(value); }

void* takeForValues(void* /*unused*/, std::size_t size) { return takeBlock(size); }

void giveFromValues(void* /*unused*/, void* block) { giveBlock(static_cast<char*>(block)); }

void* moveValues(void* /*unused*/, void* block, std::size_t oldSize, std::size_t size) {
  char* const larger = takeBlock(size);
  if (larger == nullptr) return nullptr;
  std::memcpy(larger, block, std::min(oldSize, size));
  giveBlock(static_cast<char*>(block));
  return larger;
}

constexpr yyjson_alc inBlocks = {takeForValues, moveValues, giveFromValues, nullptr};

// Lack of memory says nothing about the text.
void throwIfOutOfMemory(const yyjson_read_err& failure) {
  if (failure.code == YYJSON_READ_ERROR_MEMORY_ALLOCATION) throw std::bad_alloc();
}

yyjson_doc* read(std::string_view text, yyjson_read_err& failure) {
  yyjson_doc* const document = yyjson_read_opts(const_cast<char*>(text.data()), text.size(),
                                                YYJSON_READ_NOFLAG, &inBlocks, &failure);
  throwIfOutOfMemory(failure);
  return document;
}

// What the library refuses and the tree's does not, which is next to nothing: read by way of the
// tree.
yyjson_doc* readByTree(std::string_view text, ParseOutcome& outcome, std::string& error) {
  json value;
  outcome = parseJson(text, value, error);
  if (outcome != ParseOutcome::ok) return nullptr;
  yyjson_read_err failure{};
  return read(dumpJson(value), failure);
}

yyjson_doc* readRepaired(std::string_view text) {
  yyjson_read_err failure{};
  std::string repaired;
  return repairLoneSurrogates(text, repaired) ? read(repaired, failure) : nullptr;
}

void appendString(std::string& text, yyjson_val* value) {
  const std::string_view characters(yyjson_get_str(value), yyjson_get_len(value));
  if (yyjson_get_subtype(value) != YYJSON_SUBTYPE_NOESC) return appendQuoted(text, characters);
  text += '"';
  text += characters;
  text += '"';
}

template <class Number>
void appendDigits(std::string& text, Number number) {
  std::array<char, 24> digits{};
  text.append(digits.data(),
              std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

// As the tree's library writes it, by its function for that: a page has thousands of them.
void appendReal(std::string& text, double number) {
  std::array<char, 64> digits{};
  text.append(digits.data(),
              nlohmann::detail::to_chars(digits.data(), digits.data() + digits.size(), number));
}

void appendNumber(std::string& text, yyjson_val* value) {
  if (yyjson_is_uint(value)) return appendDigits(text, yyjson_get_uint(value));
  if (yyjson_is_sint(value)) return appendDigits(text, yyjson_get_sint(value));
  appendReal(text, yyjson_get_real(value));
}

// What the value may take as text. A container's values lie behind it, one after the other.
std::size_t textSize(const yyjson_val* value) {
  if (value == nullptr) return 0;
  const yyjson_val* const end =
      value + (yyjson_is_ctn(asMutable(value)) ? value->uni.ofs / sizeof(yyjson_val) : 1);
  std::size_t size = 0;
  for (; value != end; ++value) {
    constexpr std::size_t scalarBytes = 8;
    const bool isText = unsafe_yyjson_is_str(asMutable(value));
    size += isText ? unsafe_yyjson_get_len(asMutable(value)) + 3 : scalarBytes;
  }
  return size;
}

// For what is shorter, memory is not set aside before.
constexpr std::size_t shortPart = 4096;

json numberOf(yyjson_val* value) {
  if (yyjson_is_uint(value)) return yyjson_get_uint(value);
  if (yyjson_is_sint(value)) return yyjson_get_sint(value);
  return yyjson_get_real(value);
}

}  // namespace

bool JsonView::isObject() const { return yyjson_is_obj(asMutable(value_)); }
bool JsonView::isArray() const { return yyjson_is_arr(asMutable(value_)); }
bool JsonView::isString() const { return yyjson_is_str(asMutable(value_)); }
bool JsonView::isNumber() const { return yyjson_is_num(asMutable(value_)); }
bool JsonView::isNull() const { return yyjson_is_null(asMutable(value_)); }
bool JsonView::isTrue() const { return yyjson_is_true(asMutable(value_)); }
bool JsonView::isFalse() const { return yyjson_is_false(asMutable(value_)); }

std::size_t JsonView::size() const {
  return isObject() || isArray() ? yyjson_get_len(asMutable(value_)) : 0;
}

JsonView JsonView::operator[](std::string_view key) const {
  JsonView found;
  for (const JsonMember member : members()) {
    if (member.key == key) found = member.value;
  }
  return found;
}

std::string_view JsonView::text() const {
  if (!isString()) return {};
  return {yyjson_get_str(asMutable(value_)), yyjson_get_len(asMutable(value_))};
}

JsonRange<JsonView> JsonView::elements() const {
  const std::size_t count = isArray() ? size() : 0;
  return {count > 0 ? unsafe_yyjson_get_first(asMutable(value_)) : nullptr, count};
}

JsonRange<JsonMember> JsonView::members() const {
  const std::size_t count = isObject() ? size() : 0;
  return {count > 0 ? unsafe_yyjson_get_first(asMutable(value_)) : nullptr, count};
}

template <>
JsonView JsonIterator<JsonView>::operator*() const {
  return JsonView(value_);
}

template <>
JsonIterator<JsonView>& JsonIterator<JsonView>::operator++() {
  if (--left_ > 0) value_ = unsafe_yyjson_get_next(asMutable(value_));
  return *this;
}

template <>
JsonMember JsonIterator<JsonMember>::operator*() const {
  return {JsonView(value_).text(), JsonView(value_ + 1)};
}

template <>
JsonIterator<JsonMember>& JsonIterator<JsonMember>::operator++() {
  if (--left_ > 0) value_ = unsafe_yyjson_get_next(asMutable(value_) + 1);
  return *this;
}

void JsonView::appendTo(std::string& text) const {
  if (const std::size_t size = textSize(value_); size > shortPart) text.reserve(text.size() + size);
  append(text);
}

void JsonView::append(std::string& text) const {
  yyjson_val* const value = asMutable(value_);
  if (isString()) {
    appendString(text, value);
  } else if (isNumber()) {
    appendNumber(text, value);
  } else if (isObject()) {
    JsonObjectText object(text);
    for (const JsonMember member : members()) member.value.append(object.member(member.key));
    object.end();
  } else if (isArray()) {
    JsonListText list(text);
    for (const JsonView element : elements()) element.append(list.element());
    list.end();
  } else {
    text += isTrue() ? "true" : isFalse() ? "false" : "null";
  }
}

std::string JsonView::compactText() const {
  std::string text;
  appendTo(text);
  return text;
}

json JsonView::toValue() const {
  yyjson_val* const value = asMutable(value_);
  if (isString()) return text();
  if (isNumber()) return numberOf(value);
  if (yyjson_is_bool(value)) return yyjson_get_bool(value);
  if (isArray()) {
    json list = json::array();
    for (const JsonView element : elements()) list.push_back(element.toValue());
    return list;
  }
  if (!isObject()) return nullptr;
  json object = json::object();
  for (const JsonMember member : members())
    object[std::string(member.key)] = member.value.toValue();
  return object;
}

JsonView JsonDocument::root() const { return JsonView(yyjson_doc_get_root(document_.get())); }

void JsonDocument::replaceText(JsonView string, std::string_view text) {
  yyjson_set_strn(asMutable(string.value_), text.data(), text.size());
}

void JsonDocument::Free::operator()(yyjson_doc* document) const { yyjson_doc_free(document); }

namespace {

// A text of this size is read into memory that is allocated with it, as much as its values can
// take.
constexpr std::size_t smallText = 1024;

std::size_t valueRoom(std::size_t size) {
  return size <= smallText ? yyjson_read_max_memory_usage(size, YYJSON_READ_INSITU) : 0;
}

// Where the values begin, behind the text and the zeros that end it: as aligned as what `new`
// returns.
std::size_t valuesBegin(std::size_t size) {
  constexpr std::size_t alignment = alignof(std::max_align_t);
  return (size + YYJSON_PADDING_SIZE + alignment - 1) / alignment * alignment;
}

bool isOverLimit(std::string_view text, std::string& error) {
  const std::string_view limit = jsonLimitExceeded(text);
  if (!limit.empty()) error = limit;
  return !limit.empty();
}

// Whether what stands at `at`, a backslash or a NUL, needs the text as it came: half an emoji may
// begin there.
bool needsRepairAt(std::string_view text, std::size_t at) {
  return text[at] == '\0' ||
         (text.substr(at + 1, 1) == "u" && at + 2 < text.size() && foldCase(text[at + 2]) == 'd');
}

// Whether the text may hold what the library refuses and the tree's does not: half an emoji, a NUL
// that ends the text, a byte order mark.
bool mayNeedRepair(std::string_view text) {
  if (text.starts_with("\xEF")) return true;
  std::size_t at = 0;
  for (; at + ByteBlock::size <= text.size(); at += ByteBlock::size) {
    const ByteBlock block(text.data() + at);
    for (std::uint64_t found = block.are('\\') | block.are('\0'); found != 0; found &= found - 1) {
      if (needsRepairAt(text, at + static_cast<std::size_t>(std::countr_zero(found)))) return true;
    }
  }
  for (; at < text.size(); ++at) {
    if ((text[at] == '\\' || text[at] == '\0') && needsRepairAt(text, at)) return true;
  }
  return false;
}

}  // namespace

JsonBuffer::JsonBuffer(std::size_t size)
    : bytes_(takeBlock(valuesBegin(size) + valueRoom(size))), size_(size) {
  if (bytes_ == nullptr) throw std::bad_alloc();
}

ParseOutcome readJson(JsonBuffer text, JsonDocument& document, std::string& error) {
  error.clear();
  if (mayNeedRepair(text.text())) return readJson(text.text(), document, error);
  if (isOverLimit(text.text(), error)) return ParseOutcome::overLimit;
  char* const bytes = text.data();
  std::fill_n(bytes + text.size(), YYJSON_PADDING_SIZE, '\0');
  yyjson_alc inBuffer{};
  yyjson_read_err failure{};
  const std::size_t room = valueRoom(text.size());
  if (room > 0) yyjson_alc_pool_init(&inBuffer, bytes + valuesBegin(text.size()), room);
  yyjson_doc* const read = yyjson_read_opts(bytes, text.size(), YYJSON_READ_INSITU,
                                            room > 0 ? &inBuffer : &inBlocks, &failure);
  if (room == 0) throwIfOutOfMemory(failure);  // the buffer has room for every valid text
  if (read == nullptr) return ParseOutcome::invalid;
  document.document_ = {read, JsonDocument::Free{text.release()}};
  return ParseOutcome::ok;
}

ParseOutcome readJson(std::string_view text, JsonDocument& document, std::string& error) {
  if (isOverLimit(text, error)) return ParseOutcome::overLimit;
  yyjson_read_err failure{};
  ParseOutcome outcome = ParseOutcome::ok;
  yyjson_doc* read = media::win::chrome_inspect::read(text, failure);
  // Extensions cut texts in the middle of a character: common, and worth no tree.
  if (read == nullptr && failure.code == YYJSON_READ_ERROR_INVALID_STRING)
    read = readRepaired(text);
  if (read == nullptr) read = readByTree(text, outcome, error);
  if (read == nullptr) return outcome;
  document.document_ = {read, JsonDocument::Free{}};
  return outcome;
}

}  // namespace media::win::chrome_inspect
