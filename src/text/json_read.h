#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "text/json_view.h"

// Reading members by name. In all of them: a missing key, a null, and an `object` that is none are
// `fallback`; a value of another type throws nlohmann::json::type_error with the library's text;
// a number outside the range of the result is `fallback` (the library would wrap it silently).
namespace media::win::chrome_inspect {

// A view into `object`; valid as long as that string lives.
std::string_view readText(const nlohmann::json& object, const char* key,
                          std::string_view fallback = {});
bool readBool(const nlohmann::json& object, const char* key, bool fallback);
// A fraction is cut off toward zero; a boolean is 0 or 1, as the library has it.
std::int32_t readInt32(const nlohmann::json& object, const char* key, std::int32_t fallback);
std::int64_t readInt64(const nlohmann::json& object, const char* key, std::int64_t fallback);
std::uint64_t readUint64(const nlohmann::json& object, const char* key, std::uint64_t fallback);

// The same of a document.
std::string_view readText(JsonView object, const char* key, std::string_view fallback = {});
std::int64_t readInt64(JsonView object, const char* key, std::int64_t fallback);
std::uint64_t readUint64(JsonView object, const char* key, std::uint64_t fallback);

// The same for what a peer may get wrong without harm: another type is `fallback` too; never throw.
std::string_view lenientText(const nlohmann::json& object, const char* key,
                             std::string_view fallback = {});
std::string_view lenientText(JsonView object, const char* key, std::string_view fallback = {});
bool lenientBool(const nlohmann::json& object, const char* key, bool fallback);
std::int32_t lenientInt32(const nlohmann::json& object, const char* key, std::int32_t fallback);
std::int64_t lenientInt64(const nlohmann::json& object, const char* key, std::int64_t fallback);

// The member when it is there and an object (or an array), else nullptr; never throws.
const nlohmann::json* findObject(const nlohmann::json& object, const char* key);
const nlohmann::json* findArray(const nlohmann::json& object, const char* key);

}  // namespace media::win::chrome_inspect
