#include "text/json_read.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The member, or nullptr when it counts as missing.
const json* findMember(const json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto member = object.find(key);
  return member == object.end() || member->is_null() ? nullptr : &*member;
}

template <class Int>
Int integerOr(const json& number, Int fallback) {
  if (number.is_number_unsigned()) {
    const auto value = number.get<std::uint64_t>();
    return std::in_range<Int>(value) ? static_cast<Int>(value) : fallback;
  }
  if (number.is_number_integer()) {
    const auto value = number.get<std::int64_t>();
    return std::in_range<Int>(value) ? static_cast<Int>(value) : fallback;
  }
  const auto value = number.get<double>();
  // Both bounds are 0 or powers of two, so they are exact as doubles; NaN fails the comparison.
  constexpr double low = static_cast<double>(std::numeric_limits<Int>::min());
  constexpr Int half = std::numeric_limits<Int>::max() / 2 + 1;
  constexpr double end = 2 * static_cast<double>(half);
  return value >= low && value < end ? static_cast<Int>(value) : fallback;
}

template <class Int>
Int readInteger(const json& object, const char* key, Int fallback) {
  const json* member = findMember(object, key);
  if (member == nullptr) return fallback;
  if (!member->is_number()) return member->get<Int>();  // throws, or 0 and 1 for a boolean
  return integerOr(*member, fallback);
}

// The member alone, for what is too rare to be read twice.
json memberTree(JsonView object, const char* key) { return {{key, object[key].toValue()}}; }

}  // namespace

std::string_view readText(const json& object, const char* key, std::string_view fallback) {
  const json* member = findMember(object, key);
  if (member == nullptr) return fallback;
  if (!member->is_string()) (void)member->get<std::string>();  // throws with the library's text
  return member->get_ref<const std::string&>();
}

bool readBool(const json& object, const char* key, bool fallback) {
  const json* member = findMember(object, key);
  return member == nullptr ? fallback : member->get<bool>();
}

std::int32_t readInt32(const json& object, const char* key, std::int32_t fallback) {
  return readInteger(object, key, fallback);
}

std::int64_t readInt64(const json& object, const char* key, std::int64_t fallback) {
  return readInteger(object, key, fallback);
}

std::uint64_t readUint64(const json& object, const char* key, std::uint64_t fallback) {
  return readInteger(object, key, fallback);
}

std::string_view readText(JsonView object, const char* key, std::string_view fallback) {
  const JsonView member = object[key];
  if (member.isString()) return member.text();
  (void)readText(memberTree(object, key), key);  // throws for another type
  return fallback;
}

std::int64_t readInt64(JsonView object, const char* key, std::int64_t fallback) {
  return readInt64(memberTree(object, key), key, fallback);
}

std::uint64_t readUint64(JsonView object, const char* key, std::uint64_t fallback) {
  return readUint64(memberTree(object, key), key, fallback);
}

std::string_view lenientText(JsonView object, const char* key, std::string_view fallback) {
  const JsonView member = object[key];
  return member.isString() ? member.text() : fallback;
}

std::string_view lenientText(const json& object, const char* key, std::string_view fallback) {
  const json* member = findMember(object, key);
  if (member == nullptr || !member->is_string()) return fallback;
  return member->get_ref<const std::string&>();
}

bool lenientBool(const json& object, const char* key, bool fallback) {
  const json* member = findMember(object, key);
  return member == nullptr || !member->is_boolean() ? fallback : member->get<bool>();
}

std::int32_t lenientInt32(const json& object, const char* key, std::int32_t fallback) {
  const json* member = findMember(object, key);
  return member == nullptr || !member->is_number() ? fallback : integerOr(*member, fallback);
}

std::int64_t lenientInt64(const json& object, const char* key, std::int64_t fallback) {
  const json* member = findMember(object, key);
  return member == nullptr || !member->is_number() ? fallback : integerOr(*member, fallback);
}

const json* findObject(const json& object, const char* key) {
  const json* member = findMember(object, key);
  return member != nullptr && member->is_object() ? member : nullptr;
}

const json* findArray(const json& object, const char* key) {
  const json* member = findMember(object, key);
  return member != nullptr && member->is_array() ? member : nullptr;
}

}  // namespace media::win::chrome_inspect
