#include "platform/posix/http_header_posix.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

struct HeaderCase {
  const char* name;
  std::string bytes;
  ParseState state;
  std::uint32_t status = 0;
  bool chunked = false;
  std::optional<std::uint64_t> length = std::nullopt;
};

const std::string ok = "HTTP/1.1 200 OK\r\n";
constexpr ParseState done = ParseState::done;
constexpr ParseState malformed = ParseState::malformed;

const HeaderCase headerCases[] = {
    {"nothing but a status", ok + "\r\n", done, 200},
    {"no reason", "HTTP/1.1 404\r\n\r\n", done, 404},
    {"empty reason", "HTTP/1.1 404 \r\n\r\n", done, 404},
    {"version 1.0", "HTTP/1.0 503 Busy\r\n\r\n", done, 503},
    {"bare line feeds", "HTTP/1.1 200 OK\nContent-Length: 3\n\n", done, 200, false, 3},
    {"length", ok + "Content-Length: 12\r\n\r\n", done, 200, false, 12},
    {"length in other case, with blanks", ok + "cOnTent-lEngth:  12 \t\r\n\r\n", done, 200, false,
     12},
    {"the same length twice", ok + "Content-Length: 1\r\nContent-Length: 1\r\n\r\n", done, 200,
     false, 1},
    {"largest length", ok + "Content-Length: 18446744073709551615\r\n\r\n", done, 200, false,
     18446744073709551615U},
    {"chunks", ok + "Transfer-Encoding: Chunked\r\n\r\n", done, 200, true},
    {"after interim responses",
     "HTTP/1.1 100 Continue\r\nContent-Length: 9\r\n\r\nHTTP/1.1 103 Hints\r\n\r\n" + ok + "\r\n",
     done, 200},
    {"value past ASCII", ok + "X: caf\xc3\xa9\r\n\r\n", done, 200},
    {"empty value", ok + "X:\r\n\r\n", done, 200},
    {"two lengths", ok + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", malformed},
    {"length too large", ok + "Content-Length: 18446744073709551616\r\n\r\n", malformed},
    {"negative length", ok + "Content-Length: -1\r\n\r\n", malformed},
    {"length with a tail", ok + "Content-Length: 1a\r\n\r\n", malformed},
    {"empty length", ok + "Content-Length:\r\n\r\n", malformed},
    {"unknown coding", ok + "Transfer-Encoding: gzip, chunked\r\n\r\n", malformed},
    {"control character in a value", ok + "X: a\x01\r\n\r\n", malformed},
    {"carriage return in a value", ok + "X: a\rb\r\n\r\n", malformed},
    {"no colon", ok + "nothing\r\n\r\n", malformed},
    {"no name", ok + ": x\r\n\r\n", malformed},
    {"blank before the colon", ok + "X : y\r\n\r\n", malformed},
    {"folded line", ok + "X: y\r\n z\r\n\r\n", malformed},
    {"no status line", "\r\n", malformed},
    {"other protocol", "ICY 200 OK\r\n\r\n", malformed},
    {"status of two digits", "HTTP/1.1 20 OK\r\n\r\n", malformed},
    {"status of four digits", "HTTP/1.1 2000 OK\r\n\r\n", malformed},
    {"status below 100", "HTTP/1.1 099 OK\r\n\r\n", malformed},
    {"status that is no number", "HTTP/1.1 2x0 OK\r\n\r\n", malformed},
};

ParseState feedInPieces(HttpHeaderReader& reader, std::string_view bytes, std::size_t pieceSize) {
  ParseState state = ParseState::needsMore;
  while (!bytes.empty() && state == ParseState::needsMore) {
    std::string_view piece = bytes.substr(0, pieceSize);
    bytes.remove_prefix(piece.size());
    state = reader.feed(piece);
  }
  return state;
}

TEST(HttpHeaderReader, ReadsAlikeHoweverTheBytesAreCut) {
  for (const HeaderCase& c : headerCases) {
    for (std::size_t pieceSize = 1; pieceSize <= c.bytes.size(); ++pieceSize) {
      SCOPED_TRACE(testing::Message() << c.name << ", " << pieceSize << " bytes at a time");
      HttpHeaderReader reader;
      ASSERT_EQ(feedInPieces(reader, c.bytes, pieceSize), c.state);
      if (c.state != done) continue;
      EXPECT_EQ(reader.status(), c.status);
      EXPECT_EQ(reader.chunked(), c.chunked);
      EXPECT_EQ(reader.contentLength(), c.length);
    }
  }
}

TEST(HttpHeaderReader, TakesNothingPastTheHeader) {
  const std::string bytes = ok + "\r\nbody";
  std::string_view rest = bytes;
  HttpHeaderReader reader;
  EXPECT_EQ(reader.feed(rest), done);
  EXPECT_EQ(rest, "body");
  EXPECT_EQ(reader.feed(rest), done);
  EXPECT_EQ(rest, "body");
}

TEST(HttpHeaderReader, RefusesAHeaderOverItsLimit) {
  const std::string frame = ok + "X: \r\n\r\n";
  for (const std::size_t size : {maxResponseHeader, maxResponseHeader + 1}) {
    const std::string bytes = ok + "X: " + std::string(size - frame.size(), 'x') + "\r\n\r\n";
    ASSERT_EQ(bytes.size(), size);
    std::string_view rest = bytes;
    HttpHeaderReader reader;
    EXPECT_EQ(reader.feed(rest), size == maxResponseHeader ? done : malformed);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
