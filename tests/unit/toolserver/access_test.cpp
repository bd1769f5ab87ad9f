#include "toolserver/access.h"

#include "common/product_names.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string token(64, 'a');

TEST(IsHostAllowed, NeedsALoopbackNameAndThePort) {
  for (const char* host : {"127.0.0.1:39270", "localhost:39270", "LocalHost:39270"}) {
    EXPECT_TRUE(isHostAllowed(host, 39270)) << host;
  }
  for (const char* host :
       {"", "127.0.0.1", "localhost", "127.0.0.1:39271", "127.0.0.1:039270", "127.0.0.1:39270 ",
        "127.0.0.1:39270.", "[::1]:39270", "localhost.:39270", "evil:39270",
        "127.0.0.1:", "127.1:39270", "0.0.0.0:39270", "user@127.0.0.1:39270",
        "127.0.0.1:39270, evil", "\xC5\xBFocalhost:39270"}) {
    EXPECT_FALSE(isHostAllowed(host, 39270)) << host;
  }
  EXPECT_FALSE(isHostAllowed("127.0.0.1:0", 0));
  EXPECT_FALSE(isHostAllowed("127.0.0.1:-1", -1));
}

TEST(IsTokenRight, ComparesEveryByte) {
  EXPECT_TRUE(isTokenRight(token, token));
  for (std::size_t at = 0; at < token.size(); ++at) {
    std::string other = token;
    other[at] = static_cast<char>(other[at] ^ 0x80);
    EXPECT_FALSE(isTokenRight(other, token)) << at;
  }
  EXPECT_FALSE(isTokenRight(token.substr(1), token));
  EXPECT_FALSE(isTokenRight(token + "a", token));
  EXPECT_FALSE(isTokenRight("", token));
  EXPECT_FALSE(isTokenRight("", ""));
}

TEST(IsRequestAllowed, GoesByTheOrigin) {
  using Case = std::array<std::string_view, 4>;  // method, path, origin, Sec-Fetch-Dest
  for (const Case& c :
       {Case{"GET", "/x", extensionOrigin, ""}, Case{"GET", "/api/agent-tools"},
        Case{"POST", "/api/agent-toolsX", "", "document"},
        Case{"GET", "/api/local-file", "", "image"}, Case{"GET", "/api/local-file", "", "media"}}) {
    EXPECT_TRUE(isRequestAllowed(c[0], c[1], c[2], c[3])) << c[1] << c[3];
  }
  const std::string own(extensionOrigin);
  for (const std::string& other :
       {own + "x", own + "\r\nX: y", own.substr(1), "C" + own.substr(1)}) {
    EXPECT_FALSE(isRequestAllowed("GET", "/api/agent-tools", other, "")) << other;
  }
  for (const Case& c :
       {Case{"GET", "/api/agent-tools", "null"}, Case{"GET", "/api/local-file", "x", "image"},
        Case{"GET", "/api/agent-tool"}, Case{"GET", "/API/agent-tools"},
        Case{"GET", "/api/local-file", "", "document"}, Case{"GET", "/api/local-file"},
        Case{"GET", "/api/local-file", "", "images"}, Case{"GET", "/api/local-file", "", "image "},
        Case{"POST", "/api/local-file", "", "image"}, Case{"GET", "/api/local-file/", "", "image"},
        Case{"POST", "/api/context-file", "", "image"}}) {
    EXPECT_FALSE(isRequestAllowed(c[0], c[1], c[2], c[3])) << c[0] << c[1] << c[2] << c[3];
  }
}

TEST(JudgeRequest, AsksInOrder) {
  HttpRequest request;
  request.method = "GET";
  request.path = "/api/local-file";
  request.host = "127.0.0.1:39270";
  request.session = token;
  request.origin = extensionOrigin;
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::pass);
  request.origin += "/";
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::forbidden);
  request.session = "wrong";
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::unauthorized);
  request.method = "OPTIONS";
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::forbidden);
  request.origin = extensionOrigin;
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::preflight);
  request.host = "evil";
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::badRequest);
}

}  // namespace
}  // namespace media::win::chrome_inspect
