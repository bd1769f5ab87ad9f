#include "toolserver/http_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_literals;

// Gives `bytes`, at most `piece` of them at a time, and then nothing more.
ReceiveBytes fedWith(std::string bytes, std::size_t piece) {
  return [bytes = std::move(bytes), piece, done = std::size_t{0}](
             char* buffer, std::size_t capacity, std::size_t& got) mutable {
    got = std::min({capacity, piece, bytes.size() - done});
    bytes.copy(buffer, got, done);
    done += got;
    return got > 0;
  };
}

bool keep(const HttpRequest&) { return true; }

bool read(const std::string& bytes, HttpRequest& request, std::size_t piece = 4096) {
  return readHttpRequest(fedWith(bytes, piece), keep, request);
}

std::string posted(const std::string& headers, const std::string& body) {
  return "POST /x HTTP/1.1\r\n" + headers + "\r\n" + body;
}

TEST(ReadHttpRequest, FillsItsFieldsHoweverTheBytesArrive) {
  const std::string bytes =
      "POST /api/x?a=1?b=2 HTTP/1.1\r\nHost: h \r\nORIGIN:\t o\r\nX-Morva-Session: s\r\n"
      "Sec-Fetch-Dest: IMAGE\r\nContent-Length: 5\r\nHost: other\r\n\r\nhello and more";
  for (const std::size_t piece : {1U, 2U, 3U, 64U, 4096U}) {
    SCOPED_TRACE(piece);
    HttpRequest request;
    ASSERT_TRUE(read(bytes, request, piece));
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/api/x");
    EXPECT_EQ(request.query, "a=1?b=2");
    EXPECT_EQ(request.host, "h ");
    EXPECT_EQ(request.origin, "o");
    EXPECT_EQ(request.session, "s");
    EXPECT_EQ(request.secFetchDest, "image");
    EXPECT_EQ(request.body, "hello");
  }
}

const struct {
  const char* name;
  std::string bytes;
  bool ok;
} requestCases[] = {
    {"nothing", "", false},
    {"a head without an end", "GET / HTTP/1.1\r\n", false},
    {"the least", "GET / HTTP/1.1\r\n\r\n", true},
    {"HTTP/1.0", "GET / HTTP/1.0\r\n\r\n", false},
    {"another method", "HEAD / HTTP/1.1\r\n\r\n", false},
    {"two slashes", "GET //evil HTTP/1.1\r\n\r\n", false},
    {"a URL in the query", "GET /x?u=http://y HTTP/1.1\r\n\r\n", false},
    {"only a query", "GET ? HTTP/1.1\r\n\r\n", false},
    {"NUL in the head", "GET / HTTP/1.1\r\nX: \0\r\n\r\n"s, false},
    {"NUL in the body", posted("Content-Length: 1\r\n", "\0"s), true},
    {"a body cut short", posted("Content-Length: 2\r\n", "a"), false},
    {"a length over the limit", posted("Content-Length: 1048577\r\n", ""), false},
    {"chunked", posted("Transfer-Encoding: chunked\r\n", "0\r\n\r\n"), false},
    {"folded", posted("X: a\r\n b\r\n", ""), false},
    {"a first header that is folded", posted(" X: a\r\n", ""), false},
    {"only ends of lines", "\r\n\r\n", false},
    {"odd lines that are none of ours", posted("no colon\r\n: x\r\n\xC4: \xFF\r\n", ""), true},
};

TEST(ReadHttpRequest, RefusesWhatIsNoRequest) {
  for (const auto& c : requestCases) {
    for (const std::size_t piece : {1U, 7U, 4096U}) {
      SCOPED_TRACE(testing::Message() << c.name << ", " << piece << " bytes at a time");
      HttpRequest request;
      EXPECT_EQ(read(c.bytes, request, piece), c.ok);
    }
  }
}

const std::string goodRequestLines[] = {"GET /x HTTP/1.1",
                                        "OPTIONS /x HTTP/1.1",
                                        "GET / HTTP/1.1",
                                        "GET /?a=b HTTP/1.1",
                                        "GET /x?u=http%3A%2F%2Fy HTTP/1.1",
                                        "GET /x//y#z/../w HTTP/1.1",
                                        "GET /\xE4\xFF\ry\nz HTTP/1.1"};

const std::string badRequestLines[] = {"",
                                       "GET",
                                       "GET /x",
                                       "GET /x ",
                                       " /x HTTP/1.1",
                                       " GET /x HTTP/1.1",
                                       "GET  /x HTTP/1.1",
                                       "GET /x  HTTP/1.1",
                                       "GET /x HTTP/1.1 ",
                                       "GET /x y HTTP/1.1",
                                       "GET\t/x\tHTTP/1.1",
                                       "GET /x HTTP/1.2",
                                       "GET /x HTTP/2",
                                       "GET /x http/1.1",
                                       "get /x HTTP/1.1",
                                       "Post /x HTTP/1.1",
                                       "GETX /x HTTP/1.1",
                                       "PUT /x HTTP/1.1",
                                       "CONNECT 127.0.0.1:443 HTTP/1.1",
                                       "PRI * HTTP/2.0",
                                       "GET * HTTP/1.1",
                                       "GET x HTTP/1.1",
                                       "GET ?x=1 HTTP/1.1",
                                       "GET http://127.0.0.1/x HTTP/1.1",
                                       "GET /x://y HTTP/1.1",
                                       "GET /\0 HTTP/1.1"s,
                                       "\x16\x03\x01\x02\xFC",
                                       "\r\nGET /x HTTP/1.1"};

TEST(ReadHttpRequest, TakesOneFormOfRequestLine) {
  const std::string rest = "\r\nHost: h\r\n\r\n";
  HttpRequest request;
  for (const std::string& line : goodRequestLines) EXPECT_TRUE(read(line + rest, request)) << line;
  for (const std::string& line : badRequestLines) EXPECT_FALSE(read(line + rest, request)) << line;
}

std::string headOfSize(std::size_t size) {
  const std::string start = "GET / HTTP/1.1\r\nX: ";
  return start + std::string(size - start.size() - 4, 'x') + "\r\n\r\n";
}

TEST(ReadHttpRequest, TakesAHeadOf64KiB) {
  HttpRequest request;
  EXPECT_TRUE(read(headOfSize(maxHeaderBytes), request));
  EXPECT_FALSE(read(headOfSize(maxHeaderBytes + 1), request));
  EXPECT_FALSE(read("GET / HTTP/1.1\r\nX: " + std::string(maxHeaderBytes, 'x'), request));
}

TEST(ReadHttpRequest, CountsBodyBytesThatCameWithTheHeadForItsLimit) {
  const std::string bytes = headOfSize(maxHeaderBytes - 6) + std::string(2000, 'y');
  HttpRequest request;
  EXPECT_TRUE(read(bytes, request, 4096));  // the head is whole with its last full piece
  EXPECT_FALSE(read(bytes, request, 4000));
}

TEST(ReadHttpRequest, SearchesALongHeadOnlyOnce) {
  const auto started = std::chrono::steady_clock::now();
  HttpRequest request;
  EXPECT_TRUE(read(headOfSize(maxHeaderBytes), request, 1));
  // Searching it anew for each byte would take two thousand million steps.
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
}

TEST(ReadHttpRequest, TakesBodiesUpToTheLimitOfTheirPath) {
  for (const auto& [path, limit] :
       {std::pair("/x", maxBodyBytes), std::pair("/api/context-file", maxUploadBodyBytes),
        std::pair("/api/context-file/", maxBodyBytes)}) {
    for (const std::size_t size : {limit, limit + 1}) {
      HttpRequest request;
      const std::string head =
          "POST "s + path + " HTTP/1.1\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
      EXPECT_EQ(read(head + std::string(size, 'b'), request), size == limit) << path << size;
      if (size == limit) EXPECT_EQ(request.body, std::string(size, 'b'));
    }
  }
}

TEST(ReadHttpRequest, CountsWhatFollowsTheBodyForTheLimit) {
  HttpRequest request;
  const std::string head = "POST /x HTTP/1.1\r\nContent-Length: 1048576\r\n\r\n";
  EXPECT_FALSE(read(head + std::string(maxBodyBytes + 1, 'b'), request));
  const auto drain = [](const HttpRequest&) { return false; };
  EXPECT_FALSE(
      readHttpRequest(fedWith(head + std::string(maxBodyBytes + 1, 'b'), 4096), drain, request));
}

TEST(ReadHttpRequest, ReadsAnUnwantedBodyToItsEndAndForgetsIt) {
  const std::string body(100'000, 'b');
  const std::string head = posted("Content-Length: 100000\r\n", "");
  const auto drain = [](const HttpRequest& request) { return request.path.empty(); };
  HttpRequest request;
  EXPECT_TRUE(readHttpRequest(fedWith(head + body, 4096), drain, request));
  EXPECT_EQ(request.body, "");
  EXPECT_FALSE(readHttpRequest(fedWith(head + body.substr(1), 4096), drain, request));
}

TEST(HeaderValue, FindsTheFirstLineOfThatName) {
  const struct {
    std::string block;
    std::string value;
  } cases[] = {
      {"", ""},
      {"Host: a", "a"},
      {"GET\r\nhost:a\r\nHOST: b", "a"},
      {"hOsT: \t a b \t", "a b \t"},
      {"host : a", ""},
      {"hos: a\r\nhosts: b\r\nxhost: c", ""},
      {"host", ""},
      {"host:", ""},
      {"host:   \r\nhost: b", ""},
      {"host: a\rb\nc", "a\rb\nc"},
      {"x: y\nhost: a", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(headerValue(c.block, "host"), c.value) << c.block;
}

TEST(HeaderValue, FoldsNoByteButLetters) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (c == '\r' || c == '\n') continue;
    const std::string name = "ho"s + c + "t";
    EXPECT_EQ(headerValue(name + ": a", "host"), c == 's' || c == 'S' ? "a" : "") << byte;
  }
}

TEST(ContentLengthOf, ParsesOneStrictNumber) {
  const struct {
    std::string block;
    std::int32_t length;  // -1: not ok
  } cases[] = {
      {"", 0},
      {"GET / HTTP/1.1\r\nHost: a", 0},
      {"Content-Length: 5", 5},
      {"content-length:5", 5},
      {"CONTENT-LENGTH: \t 007", 7},
      {"Content-Length: 2147483647", 2147483647},
      {"Content-Length: 2147483648", -1},
      {"Content-Length: 99999999999999999999", -1},
      {"Content-Length: -1", -1},
      {"Content-Length: +1", -1},
      {"Content-Length: 1 ", -1},
      {"Content-Length: 1\t", -1},
      {"Content-Length: 1,1", -1},
      {"Content-Length: 0x1", -1},
      {"Content-Length: -0", -1},
      {"Content-Length: 1.0", -1},
      {"Content-Length: 1e0", -1},
      {"Content-Length: 1\r1", -1},
      {"Content-Length: \t ", -1},
      {"Content-Length:", -1},
      {"Content-Length: one", -1},
      {"Content-Length: 1\r\nContent-Length: 1", -1},
      {"Content-Length : 5", 0},
      {"Content-Length", 0},
      {"Content-Length: 1\r\nTransfer-Encoding: chunked", -1},
      {"TRANSFER-ENCODING: identity", -1},
      {"transfer-encoding:", -1},
      {"Transfer-Encoding : chunked", 0},
      {"X: a\r\n folded", -1},
      {"X: a\r\n\tfolded", -1},
      {"X: \0"s, -1},
  };
  for (const auto& c : cases) {
    bool ok = c.length < 0;
    EXPECT_EQ(contentLengthOf(c.block, ok), c.length) << c.block;
    EXPECT_EQ(ok, c.length >= 0) << c.block;
  }
}

TEST(ContentLengthOf, TakesNoByteForADigitThatIsNone) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (c == ' ' || c == '\t') continue;  // skipped in front
    bool ok = false;
    const std::int32_t length = contentLengthOf("Content-Length: "s + c, ok);
    EXPECT_EQ(length, c >= '0' && c <= '9' ? c - '0' : -1) << byte;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
