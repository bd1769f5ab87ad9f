#include "text/json_read.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct NumberCase {
  const char* text;
  std::int64_t as32;
  std::int64_t as64;
};

// -7 is the fallback.
const NumberCase numberCases[] = {
    {"0", 0, 0},
    {"-1", -1, -1},
    {"2147483647", 2147483647, 2147483647},
    {"2147483648", -7, 2147483648},
    {"-2147483648", -2147483648, -2147483648},
    {"-2147483649", -7, -2147483649},
    {"4294967295", -7, 4294967295},
    {"4294967297", -7, 4294967297},
    {"9223372036854775807", -7, std::numeric_limits<std::int64_t>::max()},
    {"9223372036854775808", -7, -7},
    {"18446744073709551615", -7, -7},
    {"-9223372036854775808", -7, std::numeric_limits<std::int64_t>::min()},
    {"18446744073709551616", -7, -7},
    {"1.9", 1, 1},
    {"-1.9", -1, -1},
    {"2147483647.5", 2147483647, 2147483647},
    {"2147483648.0", -7, 2147483648},
    {"-2147483648.0", -2147483648, -2147483648},
    {"-2147483649.0", -7, -2147483649},
    {"9223372036854775808.0", -7, -7},
    {"-9223372036854775808.0", -7, std::numeric_limits<std::int64_t>::min()},
    {"-9223372036854777856.0", -7, -7},
    {"1e300", -7, -7},
    {"-1e300", -7, -7},
    {"1e-300", 0, 0},
};

void expectNumber(const json& number, std::int64_t as32, std::int64_t as64) {
  SCOPED_TRACE(number.dump());
  const json object = {{"n", number}};
  EXPECT_EQ(readInt32(object, "n", -7), as32);
  EXPECT_EQ(readInt64(object, "n", -7), as64);
  EXPECT_EQ(lenientInt32(object, "n", -7), as32);
  EXPECT_EQ(lenientInt64(object, "n", -7), as64);
}

TEST(ReadInteger, KeepsWhatFitsAndFallsBackForTheRest) {
  for (const NumberCase& c : numberCases) expectNumber(json::parse(c.text), c.as32, c.as64);
  for (const double none :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    expectNumber(none, -7, -7);
  }
}

const json nothingIn[] = {json::object(),  {{"k", nullptr}},   nullptr, "k",
                          json::array(),   json::array({"k"}), 5,       true,
                          {{"other", "x"}}};

TEST(Readers, FallBackForMissingNullAndNoObject) {
  for (const json& object : nothingIn) {
    SCOPED_TRACE(object.dump());
    EXPECT_EQ(readText(object, "k"), "");
    EXPECT_EQ(readText(object, "k", "fallback"), "fallback");
    EXPECT_EQ(lenientText(object, "k", "fallback"), "fallback");
    for (const bool fallback : {true, false}) {
      EXPECT_EQ(readBool(object, "k", fallback), fallback);
      EXPECT_EQ(lenientBool(object, "k", fallback), fallback);
    }
    EXPECT_EQ(readInt32(object, "k", 3), 3);
    EXPECT_EQ(readInt64(object, "k", 4), 4);
    EXPECT_EQ(lenientInt32(object, "k", 3), 3);
    EXPECT_EQ(lenientInt64(object, "k", 4), 4);
    EXPECT_EQ(findObject(object, "k"), nullptr);
    EXPECT_EQ(findArray(object, "k"), nullptr);
  }
}

TEST(Readers, ReadWhatIsThere) {
  const json object = {{"text", "a"}, {"empty", ""}, {"object", {{"x", 1}}}, {"array", {1, 2}}};
  for (const auto read : {readText, lenientText}) {
    EXPECT_EQ(read(object, "text", "b"), "a");
    EXPECT_EQ(read(object, "empty", "b"), "");
  }
  for (const bool value : {true, false}) {
    EXPECT_EQ(readBool({{"k", value}}, "k", !value), value);
    EXPECT_EQ(lenientBool({{"k", value}}, "k", !value), value);
  }
  EXPECT_EQ(findObject(object, "object"), &object["object"]);
  EXPECT_EQ(findArray(object, "array"), &object["array"]);
  EXPECT_EQ(findObject(object, "array"), nullptr);
  EXPECT_EQ(findArray(object, "object"), nullptr);
}

const json oneOfEachType[] = {"text", true, 5, -5, 1.5, json::array({1}), json::object()};

template <class Read>
void expectError(const json& value, const char* wanted, Read read) {
  try {
    (void)read();
    ADD_FAILURE() << "nothing thrown for " << value;
  } catch (const json::type_error& error) {
    EXPECT_EQ(error.what(), std::string("[json.exception.type_error.302] type must be ") + wanted +
                                ", but is " + value.type_name());
  }
}

TEST(Readers, ThrowTheLibrarysTextForAnotherTypeOrFallBackWhenLenient) {
  for (const json& value : oneOfEachType) {
    SCOPED_TRACE(value.dump());
    const json object = {{"k", value}};
    if (!value.is_string()) expectError(value, "string", [&] { return readText(object, "k"); });
    if (!value.is_boolean()) {
      expectError(value, "boolean", [&] { return readBool(object, "k", false); });
    }
    if (!value.is_number() && !value.is_boolean()) {
      expectError(value, "number", [&] { return readInt32(object, "k", 0); });
      expectError(value, "number", [&] { return readInt64(object, "k", 0); });
    }
    EXPECT_EQ(lenientText(object, "k", "fallback"), value.is_string() ? "text" : "fallback");
    EXPECT_EQ(lenientBool(object, "k", false), value.is_boolean());
    EXPECT_EQ(lenientInt32(object, "k", -7) == -7, !value.is_number());
    EXPECT_EQ(lenientInt64(object, "k", -7) == -7, !value.is_number());
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
