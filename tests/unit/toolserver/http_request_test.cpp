// A request and the query in it.
#include "toolserver/http_request.h"

#include "support/testing.h"
#include "toolserver/url_query.h"

namespace media::win::chrome_inspect {
namespace {

// Delivers `bytes`, at most `piece` of them at a time, and then nothing more.
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

const std::tuple<const char*, std::string, bool> requestCases[] = {
    {"nothing", "", false},
    {"a head without an end", "GET / HTTP/1.1\r\n", false},
    {"the least", "GET / HTTP/1.1\r\n\r\n", true},
    {"NUL in the head", "GET / HTTP/1.1\r\nX: \0\r\n\r\n"s, false},
    {"NUL in the body", posted("Content-Length: 1\r\n", "\0"s), true},
    {"a body cut short", posted("Content-Length: 2\r\n", "a"), false},
    {"chunked", posted("Transfer-Encoding: chunked\r\n", "0\r\n\r\n"), false},
    {"folded", posted("X: a\r\n b\r\n", ""), false},
    {"a first header that is folded", posted(" X: a\r\n", ""), false},
    {"only ends of lines", "\r\n\r\n", false},
    {"odd lines that are none of ours", posted("no colon\r\n: x\r\n\xC4: \xFF\r\n", ""), true},
};

TEST(ReadHttpRequest, RefusesWhatIsNoRequest) {
  for (const auto& [name, bytes, ok] : requestCases) {
    for (const std::size_t piece : {1U, 7U, 4096U}) {
      SCOPED_TRACE(testing::Message() << name << ", " << piece << " bytes at a time");
      HttpRequest request;
      EXPECT_EQ(read(bytes, request, piece), ok);
    }
  }
}

TEST(ReadHttpRequest, TakesOneFormOfRequestLine) {
  const std::string rest = "\r\nHost: h\r\n\r\n";
  HttpRequest request;
  for (const std::string line : {"GET /x HTTP/1.1", "OPTIONS /x HTTP/1.1", "GET / HTTP/1.1",
                                 "GET /?a=b HTTP/1.1", "GET /x?u=http%3A%2F%2Fy HTTP/1.1",
                                 "GET /x//y#z/../w HTTP/1.1", "GET /\xE4\xFF\ry\nz HTTP/1.1"}) {
    EXPECT_TRUE(read(line + rest, request)) << line;
  }
  for (const std::string line :
       {// Too little, and blanks in other places.
        "", "GET", "GET /x", "GET /x ", " /x HTTP/1.1", " GET /x HTTP/1.1", "GET  /x HTTP/1.1",
        "GET /x  HTTP/1.1", "GET /x HTTP/1.1 ", "GET /x y HTTP/1.1", "GET\t/x\tHTTP/1.1",
        // Other versions and methods.
        "GET /x HTTP/1.0", "GET /x HTTP/2", "GET /x http/1.1", "get /x HTTP/1.1",
        "Post /x HTTP/1.1", "GETX /x HTTP/1.1", "HEAD /x HTTP/1.1",
        "CONNECT 127.0.0.1:443 HTTP/1.1", "PRI * HTTP/2.0",
        // No path.
        "GET * HTTP/1.1", "GET x HTTP/1.1", "GET ?x=1 HTTP/1.1", "GET http://127.0.0.1/x HTTP/1.1",
        "GET //evil HTTP/1.1", "GET /x?u=http://y HTTP/1.1", "\x16\x03\x01\x02\xFC",
        "\r\nGET /x HTTP/1.1"}) {
    EXPECT_FALSE(read(line + rest, request)) << line;
  }
}

std::string headOfSize(std::size_t size) {
  const std::string start = "GET / HTTP/1.1\r\nX: ";
  return start + std::string(size - start.size() - 4, 'x') + "\r\n\r\n";
}

// Byte by byte: searching the head anew for each would take two thousand million steps.
TEST(ReadHttpRequest, TakesAHeadOf64KiBAndSearchesItOnce) {
  const auto started = std::chrono::steady_clock::now();
  HttpRequest request;
  EXPECT_TRUE(read(headOfSize(65536), request, 1));
  EXPECT_FALSE(read(headOfSize(65537), request, 1));
  EXPECT_FALSE(read("GET / HTTP/1.1\r\nX: " + std::string(maxHeaderBytes, 'x'), request));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
}

TEST(ReadHttpRequest, CountsBodyBytesThatCameWithTheHeadForItsLimit) {
  const std::string bytes = headOfSize(maxHeaderBytes - 6) + std::string(2000, 'y');
  HttpRequest request;
  EXPECT_TRUE(read(bytes, request, 4096));  // the head is whole with its last full piece
  EXPECT_FALSE(read(bytes, request, 4000));
}

TEST(ReadHttpRequest, TakesBodiesUpToTheLimitOfTheirPath) {
  for (const auto& [path, limit] :
       {std::pair("/x", 1'048'576U), std::pair("/api/context-file", 33'554'432U),
        std::pair("/api/context-file/", 1'048'576U)}) {
    for (const std::size_t size : {limit, limit + 1}) {
      HttpRequest request;
      const std::string head =
          "POST "s + path + " HTTP/1.1\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
      EXPECT_EQ(read(head + std::string(size, 'b'), request), size == limit) << path << size;
      if (size == limit) EXPECT_EQ(request.body, std::string(size, 'b'));
    }
  }
}

TEST(ReadHttpRequest, ReadsAnUnwantedBodyToItsEndAndForgetsIt) {
  const std::string body(maxBodyBytes, 'b');
  const std::string head = posted("Content-Length: 1048576\r\n", "");
  const auto drain = [](const HttpRequest& request) { return request.path.empty(); };
  HttpRequest request;
  EXPECT_TRUE(readHttpRequest(fedWith(head + body, 4096), drain, request));
  EXPECT_EQ(request.body, "");
  EXPECT_FALSE(readHttpRequest(fedWith(head + body.substr(1), 4096), drain, request));
  // What follows the body counts for the limit.
  EXPECT_FALSE(readHttpRequest(fedWith(head + body + "b", 4096), drain, request));
  EXPECT_FALSE(read(head + body + "b", request));
}

TEST(HeaderValue, FindsTheFirstLineOfThatName) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"Host: a", "a"},
      {"GET\r\nhost:a\r\nHOST: b", "a"},
      {"hOsT: \t a b \t", "a b \t"},
      {"host : a\r\nhos: a\r\nhosts: b\r\nxhost: c\r\nhost", ""},
      {"host:   \r\nhost: b", ""},
      {"host: a\rb\nc", "a\rb\nc"},
      {"x: y\nhost: a", ""},
      {"ho[t: a\r\nho\xD3t: a\r\nho\x13t: a", ""},  // bytes with the case bit of a letter
  };
  for (const auto& [block, value] : cases) EXPECT_EQ(headerValue(block, "host"), value) << block;
}

TEST(ContentLengthOf, ParsesOneStrictNumber) {
  const std::pair<std::string, std::int32_t> cases[] = {
      {"GET / HTTP/1.1\r\nHost: a", 0},   {"content-length:5", 5},
      {"CONTENT-LENGTH: \t 007", 7},      {"Content-Length: 2147483647", 2147483647},
      {"Content-Length : 5", 0},          {"Content-Length", 0},
      {"Transfer-Encoding : chunked", 0},
  };
  for (const auto& [block, length] : cases) {
    bool ok = false;
    EXPECT_EQ(contentLengthOf(block, ok), length) << block;
    EXPECT_TRUE(ok) << block;
  }
  for (const std::string& value :
       {// Too large, and other notations.
        "2147483648"s, "99999999999999999999"s, "-1"s, "-0"s, "+1"s, "1 "s, "1\t"s, "1,1"s, "0x1"s,
        "1.0"s, "1e0"s, "1\r1"s, "\t "s, ""s, "/"s, ":"s, "\xB2"s, "1\0"s,
        // What stands on further lines.
        "1\r\nContent-Length: 1"s, "1\r\n folded"s, "1\r\n\tfolded"s, "1\r\ntransfer-encoding:"s,
        "1\r\nTRANSFER-ENCODING: identity"s}) {
    bool ok = true;
    EXPECT_EQ(contentLengthOf("Content-Length: " + value, ok), -1) << value;
    EXPECT_FALSE(ok) << value;
  }
}

TEST(QueryParam, ReturnsTheFirstOfThatName) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"x=1&name=a&name=b", "a"},
      {"name=&name=b", ""},
      {"name", ""},
      {"Name=a", ""},
      {"names=a&xname=b", ""},
      {"name=a=b", "a=b"},
      {"&&name=a&", "a"},
      {"name&name=b", "b"},
      {"name=%26&b", "%26"},
      {"a=name=b", ""},
      {"name==", "="},
  };
  for (const auto& [query, value] : cases) EXPECT_EQ(queryParam(query, "name"), value) << query;
}

TEST(UrlDecode, DecodesEscapesAndKeepsTheRest) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},           {"a+b", "a b"},       {"%41%62", "Ab"},     {"%c3%A9", "\xC3\xA9"},
      {"%4", "%4"},       {"a%", "a%"},         {"%4z", "%4z"},       {"%z4", "%z4"},
      {"%%41", "%A"},     {"%2541", "%41"},     {"%00", "\0"s},       {"%2B+", "+ "},
      {"\xFF%", "\xFF%"}, {"%0/%0:", "%0/%0:"}, {"%0@%0G", "%0@%0G"}, {"%0`%0g", "%0`%0g"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(urlDecode(text), decoded) << text;
}

}  // namespace
}  // namespace media::win::chrome_inspect
