#include "text/json_read.h"

#include <limits>

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

TEST(ReadInteger, KeepsWhatFitsAndFallsBackForTheRest) {
  const std::tuple<json, std::int64_t, std::int64_t> cases[] = {
      // -7 is the fallback
      {0, 0, 0},
      {-1, -1, -1},
      {2147483647, 2147483647, 2147483647},
      {2147483648, -7, 2147483648},
      {-2147483648, -2147483648, -2147483648},
      {-2147483649, -7, -2147483649},
      {4294967297, -7, 4294967297},
      {2147483647U, 2147483647, 2147483647},
      {2147483648U, -7, 2147483648},
      {9223372036854775807U, -7, 9223372036854775807},
      {9223372036854775808U, -7, -7},
      {least, -7, least},
      {1.9, 1, 1},
      {-1.9, -1, -1},
      {2147483647.5, 2147483647, 2147483647},
      {2147483648.0, -7, 2147483648},
      {-2147483648.0, -2147483648, -2147483648},
      {-2147483649.0, -7, -2147483649},
      {9223372036854775808.0, -7, -7},
      {-9223372036854775808.0, -7, least},
      {-9223372036854777856.0, -7, -7},
      {std::numeric_limits<double>::quiet_NaN(), -7, -7},
      {infinity, -7, -7},
      {-infinity, -7, -7},
  };
  for (const auto& [number, as32, as64] : cases) {
    SCOPED_TRACE(number.dump());
    const json object = {{"n", number}};
    EXPECT_EQ(readInt32(object, "n", -7), as32);
    EXPECT_EQ(readInt64(object, "n", -7), as64);
    EXPECT_EQ(lenientInt32(object, "n", -7), as32);
    EXPECT_EQ(lenientInt64(object, "n", -7), as64);
  }
}

TEST(ReadUint64, TakesItsWholeRange) {
  const struct {
    json number;
    std::uint64_t wanted;  // 7 is the fallback
  } cases[] = {
      {0, 0},   {18446744073709551615U, 18446744073709551615U}, {-1, 7},     {7.9, 7}, {2.9, 2},
      {-1., 7}, {9223372036854775808.0, 9223372036854775808U},  {1.9e19, 7},
  };
  for (const auto& c : cases)
    EXPECT_EQ(readUint64({{"n", c.number}}, "n", 7), c.wanted) << c.number;
}

TEST(Readers, FallBackForMissingNullAndNoObject) {
  for (const json& object : {json::object(), json{{"k", nullptr}}, json(), json("k"), json::array(),
                             json::array({"k"}), json(5), json{{"other", "x"}}}) {
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

TEST(Readers, ReadTheirTypeAndThrowTheLibrarysTextForAnotherOrFallBackWhenLenient) {
  for (const json& value : {json("text"), json(""), json(true), json(false), json(5), json(1.5),
                            json::array({1}), json{{"x", 1}}}) {
    SCOPED_TRACE(value.dump());
    const json object = {{"k", value}};
    const std::string text = value.is_string() ? value.get<std::string>() : "fallback";
    if (value.is_string()) {
      EXPECT_EQ(readText(object, "k", "fallback"), text);
    } else {
      expectError(value, "string", [&] { return readText(object, "k"); });
    }
    EXPECT_EQ(lenientText(object, "k", "fallback"), text);
    for (const bool fallback : {true, false}) {
      if (value.is_boolean()) {
        EXPECT_EQ(readBool(object, "k", fallback), value == true);
      } else {
        expectError(value, "boolean", [&] { return readBool(object, "k", fallback); });
      }
      EXPECT_EQ(lenientBool(object, "k", fallback), value.is_boolean() ? value == true : fallback);
    }
    if (!value.is_number() && !value.is_boolean()) {
      expectError(value, "number", [&] { return readInt32(object, "k", 0); });
      expectError(value, "number", [&] { return readInt64(object, "k", 0); });
    }
    EXPECT_EQ(lenientInt32(object, "k", -7) == -7, !value.is_number());
    EXPECT_EQ(lenientInt64(object, "k", -7) == -7, !value.is_number());
    EXPECT_EQ(findObject(object, "k"), value.is_object() ? &object["k"] : nullptr);
    EXPECT_EQ(findArray(object, "k"), value.is_array() ? &object["k"] : nullptr);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
