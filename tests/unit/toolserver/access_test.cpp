#include "toolserver/access.h"

#include <gtest/gtest.h>

#include <string>

#include "common/product_names.h"

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
        "127.0.0.1:", "localhost", "127.1:39270", "0.0.0.0:39270", "user@127.0.0.1:39270",
        "127.0.0.1:39270, evil", "\xC5\xBFocalhost:39270"}) {
    EXPECT_FALSE(isHostAllowed(host, 39270)) << host;
  }
  EXPECT_FALSE(isHostAllowed("127.0.0.1:0", 0));
  EXPECT_FALSE(isHostAllowed("127.0.0.1:-1", -1));
}

TEST(IsTokenRight, ComparesEveryByte) {
  EXPECT_TRUE(isTokenRight(token, token));
  for (std::size_t at = 0; at < token.size(); ++at) {
    for (const int change : {1, 0x20, 0x80}) {
      std::string other = token;
      other[at] = static_cast<char>(other[at] ^ change);
      EXPECT_FALSE(isTokenRight(other, token)) << at;
    }
  }
  EXPECT_FALSE(isTokenRight(token.substr(1), token));
  EXPECT_FALSE(isTokenRight(token + "a", token));
  EXPECT_FALSE(isTokenRight("", token));
  EXPECT_FALSE(isTokenRight("", ""));
}

TEST(IsRequestAllowed, GoesByTheOrigin) {
  const struct {
    const char* method;
    const char* path;
    std::string_view origin;
    const char* dest;
    bool allowed;
  } cases[] = {
      {"GET", "/x", extensionOrigin, "", true},
      {"GET", "/api/agent-tools", "null", "", false},
      {"GET", "/api/local-file", "https://evil", "image", false},
      {"GET", "/api/agent-tools", "", "", true},
      {"POST", "/api/agent-toolsX", "", "document", true},
      {"GET", "/api/agent-tool", "", "", false},
      {"GET", "/API/agent-tools", "", "", false},
      {"GET", "/api/local-file", "", "image", true},
      {"GET", "/api/local-file", "", "media", true},
      {"GET", "/api/local-file", "", "document", false},
      {"GET", "/api/local-file", "", "images", false},
      {"GET", "/api/local-file", "", "image ", false},
      {"GET", "/api/local-file", "", "", false},
      {"POST", "/api/local-file", "", "image", false},
      {"GET", "/api/local-file/", "", "image", false},
      {"POST", "/api/context-file", "", "image", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isRequestAllowed(c.method, c.path, c.origin, c.dest), c.allowed)
        << c.method << c.path << c.origin << c.dest;
  }
}

HttpRequest goodRequest() {
  HttpRequest request;
  request.method = "GET";
  request.path = "/api/local-file";
  request.host = "127.0.0.1:39270";
  request.session = token;
  request.origin = extensionOrigin;
  return request;
}

TEST(JudgeRequest, AsksInOrder) {
  HttpRequest request = goodRequest();
  EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::pass);
  request.origin = "other";
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

TEST(JudgeRequest, TakesNoOriginThatIsAlmostTheExtensions) {
  const std::string own(extensionOrigin);
  for (const std::string& origin : {own + "x", own + "/", own + " ", own + "\r\nX: y",
                                    own.substr(0, own.size() - 1), "C" + own.substr(1)}) {
    HttpRequest request = goodRequest();
    request.origin = origin;
    EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::forbidden) << origin;
    request.method = "OPTIONS";
    EXPECT_EQ(judgeRequest(request, 39270, token), Verdict::forbidden) << origin;
  }
}

TEST(JudgeRequest, LetsNobodyInWithoutATokenOfItsOwn) {
  HttpRequest request = goodRequest();
  request.session.clear();
  EXPECT_EQ(judgeRequest(request, 39270, ""), Verdict::unauthorized);
}

}  // namespace
}  // namespace media::win::chrome_inspect
