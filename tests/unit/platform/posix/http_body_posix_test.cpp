#include "platform/posix/http_body_posix.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

HttpBodyDecoder decoderFor(const std::string& headerLines, bool headOnly = false) {
  const std::string header = "HTTP/1.1 " + headerLines + "\r\n\r\n";
  std::string_view rest = header;
  HttpHeaderReader reader;
  EXPECT_EQ(reader.feed(rest), ParseState::done);
  return HttpBodyDecoder::forResponse(reader, headOnly);
}

struct BodyCase {
  const char* name;
  std::string header;
  std::string bytes;
  ParseState state;       // when all bytes have been fed
  ParseState stateAtEnd;  // when the connection then closes
  std::string body;
};

const std::string length5 = "200 OK\r\nContent-Length: 5";
const std::string chunks = "200 OK\r\nTransfer-Encoding: chunked";
constexpr ParseState done = ParseState::done;
constexpr ParseState malformed = ParseState::malformed;
constexpr ParseState more = ParseState::needsMore;

const BodyCase bodyCases[] = {
    {"whole", length5, "hello", done, done, "hello"},
    {"cut short", length5, "hell", more, malformed, "hell"},
    {"more than announced", length5, "hello there", done, done, "hello"},
    {"length 0", "200 OK\r\nContent-Length: 0", "", done, done, ""},
    {"until close", "200 OK", "hello", more, done, "hello"},
    {"until close, empty", "200 OK", "", more, done, ""},
    {"204 has none", "204 No\r\nContent-Length: 5", "hello", done, done, ""},
    {"304 has none", "304 Same\r\nContent-Length: 5", "", done, done, ""},
    {"chunks win over a length", chunks + "\r\nContent-Length: 1", "2\r\nab\r\n0\r\n\r\n", done,
     done, "ab"},
    {"chunks", chunks, "5\r\nhello\r\n1\r\n!\r\n0\r\n\r\n", done, done, "hello!"},
    {"hexadecimal size", chunks, "00A\r\n0123456789\r\n0\r\n\r\n", done, done, "0123456789"},
    {"extension", chunks, "2;x=\"y\"\r\nab\r\n0 ; z\r\n\r\n", done, done, "ab"},
    {"trailers", chunks, "2\r\nab\r\n0\r\nX: y\r\nZ: w\r\n\r\n", done, done, "ab"},
    {"line ends inside a chunk", chunks, "4\r\n\r\n\r\n\r\n0\r\n\r\n", done, done, "\r\n\r\n"},
    {"bytes after the last chunk", chunks, "0\r\n\r\nHTTP/1.1", done, done, ""},
    {"no last chunk", chunks, "2\r\nab\r\n", more, malformed, "ab"},
    {"cut in a chunk", chunks, "5\r\nhel", more, malformed, "hel"},
    {"cut in the trailers", chunks, "0\r\nX: y\r\n", more, malformed, ""},
    {"size that is no number", chunks, "xyz\r\n", malformed, malformed, ""},
    {"empty size", chunks, "\r\n", malformed, malformed, ""},
    {"size too large", chunks, "10000000000000000\r\n", malformed, malformed, ""},
    {"largest size", chunks, "ffffffffffffffff\r\n", malformed, malformed, ""},
    {"negative size", chunks, "-1\r\n", malformed, malformed, ""},
    {"chunk longer than its size", chunks, "2\r\nabc\r\n", malformed, malformed, "ab"},
};

TEST(HttpBodyDecoder, DecodesAlikeHoweverTheBytesAreCut) {
  for (const BodyCase& c : bodyCases) {
    for (std::size_t pieceSize = 1; pieceSize <= c.bytes.size() + 1; ++pieceSize) {
      SCOPED_TRACE(testing::Message() << c.name << ", " << pieceSize << " bytes at a time");
      HttpBodyDecoder decoder = decoderFor(c.header);
      std::string body;
      ParseState state = decoder.feed("", body);
      for (std::size_t at = 0; at < c.bytes.size(); at += pieceSize) {
        state = decoder.feed(std::string_view(c.bytes).substr(at, pieceSize), body);
      }
      EXPECT_EQ(state, c.state);
      EXPECT_EQ(body, c.body);
      EXPECT_EQ(decoder.endOfConnection(), c.stateAtEnd);
    }
  }
}

TEST(HttpBodyDecoder, ExpectsNothingAfterHead) {
  HttpBodyDecoder decoder = decoderFor(length5, true);
  std::string body;
  EXPECT_EQ(decoder.feed("", body), done);
}

TEST(HttpBodyDecoder, RefusesALineWithoutEnd) {
  for (const char* const start : {"1;", "0\r\nX: "}) {
    SCOPED_TRACE(start);
    HttpBodyDecoder decoder = decoderFor(chunks);
    std::string body;
    EXPECT_EQ(decoder.feed(start, body), more);
    EXPECT_EQ(decoder.feed(std::string(4000, 'x'), body), more);
    EXPECT_EQ(decoder.feed(std::string(200, 'x'), body), malformed);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
