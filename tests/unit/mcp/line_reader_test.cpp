#include "mcp/line_reader.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::pair<std::string, std::string> lineCases[] = {
    {"", ""},
    {"a", ""},
    {"a\nb\n", "[a][b]"},
    {"a\r\n\r\n\n", "[a][][]"},
    {"a\rb\n", "[a\rb]"},
    {"1234\n", "[1234]"},  // the longest
    {"1234\r\n", "[1234]"},
    {"12345\nb\n", "[too long][b]"},
    {"1234\r5\nb\n", "[too long][b]"},
    {"12345678901234\r\nb\n", "[too long][b]"},
    {"123456", "[too long]"},
};

TEST(LineReader, TakesLinesHoweverTheyAreCut) {
  for (const auto& [bytes, wanted] : lineCases) {
    for (const std::size_t chunk : {1U, 2U, 3U, 64U}) {
      LineReader lines(4);
      std::string taken;
      for (std::size_t at = 0; at < bytes.size(); at += chunk) {
        lines.feed(std::string_view(bytes).substr(at, chunk),
                   [&taken](std::optional<std::string_view> line) {
                     taken += "[" + std::string(line.value_or("too long")) + "]";
                   });
      }
      EXPECT_EQ(taken, wanted) << bytes << ", " << chunk << " bytes at a time";
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
