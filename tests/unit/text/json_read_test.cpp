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

TEST(ReadInteger, KeepsWhatFitsAndFallsBackForTheRest) {
  for (const NumberCase& c : numberCases) {
    SCOPED_TRACE(c.text);
    const json object = {{"n", json::parse(c.text)}};
    EXPECT_EQ(readInt32(object, "n", -7), c.as32);
    EXPECT_EQ(readInt64(object, "n", -7), c.as64);
  }
}

TEST(ReadInteger, FallsBackForWhatIsNoNumberAtAll) {
  for (const double none :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    SCOPED_TRACE(none);
    const json object = {{"n", none}};
    EXPECT_EQ(readInt32(object, "n", -7), -7);
    EXPECT_EQ(readInt64(object, "n", -7), -7);
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
    EXPECT_TRUE(readBool(object, "k", true));
    EXPECT_FALSE(readBool(object, "k", false));
    EXPECT_EQ(readInt32(object, "k", 3), 3);
    EXPECT_EQ(readInt64(object, "k", 4), 4);
    EXPECT_EQ(lenientText(object, "k", "fallback"), "fallback");
    EXPECT_TRUE(lenientBool(object, "k", true));
    EXPECT_EQ(findObject(object, "k"), nullptr);
    EXPECT_EQ(findArray(object, "k"), nullptr);
  }
}

TEST(Readers, ReadWhatIsThere) {
  const json object = {{"text", "a"}, {"empty", ""},          {"no", false},
                       {"yes", true}, {"object", {{"x", 1}}}, {"array", {1, 2}}};
  EXPECT_EQ(readText(object, "text", "b"), "a");
  EXPECT_EQ(readText(object, "empty", "b"), "");
  EXPECT_EQ(lenientText(object, "empty", "b"), "");
  EXPECT_FALSE(readBool(object, "no", true));
  EXPECT_TRUE(readBool(object, "yes", false));
  EXPECT_FALSE(lenientBool(object, "no", true));
  ASSERT_NE(findObject(object, "object"), nullptr);
  EXPECT_EQ(*findObject(object, "object"), object["object"]);
  ASSERT_NE(findArray(object, "array"), nullptr);
  EXPECT_EQ(*findArray(object, "array"), object["array"]);
  EXPECT_EQ(findObject(object, "array"), nullptr);
  EXPECT_EQ(findArray(object, "object"), nullptr);
}

const json oneOfEachType[] = {"text", true, 5, -5, 1.5, json::array({1}), json::object()};

template <class Read>
std::string errorOf(const Read& read) {
  try {
    (void)read();
    return "nothing thrown";
  } catch (const json::type_error& error) {
    return error.what();
  }
}

TEST(Readers, ThrowTheLibrarysTextForAnotherType) {
  for (const json& value : oneOfEachType) {
    SCOPED_TRACE(value.dump());
    const json object = {{"k", value}};
    const std::string end = std::string(", but is ") + value.type_name();
    if (!value.is_string()) {
      EXPECT_EQ(errorOf([&] { return readText(object, "k"); }),
                "[json.exception.type_error.302] type must be string" + end);
    }
    if (!value.is_boolean()) {
      EXPECT_EQ(errorOf([&] { return readBool(object, "k", false); }),
                "[json.exception.type_error.302] type must be boolean" + end);
    }
    if (!value.is_number() && !value.is_boolean()) {
      const std::string text = "[json.exception.type_error.302] type must be number" + end;
      EXPECT_EQ(errorOf([&] { return readInt32(object, "k", 0); }), text);
      EXPECT_EQ(errorOf([&] { return readInt64(object, "k", 0); }), text);
    }
  }
}

TEST(LenientReaders, FallBackForAnotherType) {
  for (const json& value : oneOfEachType) {
    SCOPED_TRACE(value.dump());
    const json object = {{"k", value}};
    EXPECT_EQ(lenientText(object, "k", "fallback"), value.is_string() ? "text" : "fallback");
    EXPECT_EQ(lenientBool(object, "k", false), value.is_boolean());
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
