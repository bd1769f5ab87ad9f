#include "text/json_view.h"

#include <yyjson.h>

#include <cstdlib>
#include <new>
#include <nlohmann/json.hpp>

#include "text/json_limits.h"
#include "text/lone_surrogates.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The library takes pointers to mutable values everywhere and changes none of them.
yyjson_val* asMutable(const yyjson_val* value) { return const_cast<yyjson_val*>(value); }

yyjson_doc* read(std::string_view text, yyjson_read_err& failure) {
  return yyjson_read_opts(const_cast<char*>(text.data()), text.size(), YYJSON_READ_NOFLAG, nullptr,
                          &failure);
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
  if (value_ == nullptr) {
    text += "null";
    return;
  }
  std::size_t size = 0;
  const std::unique_ptr<char, decltype(&std::free)> written(
      yyjson_val_write(value_, YYJSON_WRITE_NOFLAG, &size), &std::free);
  if (!written) throw std::bad_alloc();  // values that were read can be written
  text.append(written.get(), size);
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

ParseOutcome readJson(std::string_view text, JsonDocument& document, std::string& error) {
  if (const std::string_view limit = jsonLimitExceeded(text); !limit.empty()) {
    error = limit;
    return ParseOutcome::overLimit;
  }
  yyjson_read_err failure{};
  ParseOutcome outcome = ParseOutcome::ok;
  yyjson_doc* read = media::win::chrome_inspect::read(text, failure);
  // Extensions cut texts in the middle of a character: common, and worth no tree.
  if (read == nullptr && failure.code == YYJSON_READ_ERROR_INVALID_STRING)
    read = readRepaired(text);
  if (read == nullptr) read = readByTree(text, outcome, error);
  if (read != nullptr) document.document_.reset(read);
  return outcome;
}

}  // namespace media::win::chrome_inspect
