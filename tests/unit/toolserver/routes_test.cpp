#include "toolserver/routes.h"

#include "browser_tools/tool_catalog.h"
#include "common/product_names.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

HttpResponse answerTo(const std::string& method, const std::string& path,
                      const std::string& query = "", const std::string& body = "") {
  HttpRequest request;
  request.method = method;
  request.path = path;
  request.query = query;
  request.body = body;
  request.origin = extensionOrigin;
  return answerRoute(request);
}

struct RouteCase {
  const char* method;
  const char* path;
  const char* query;
  const char* requestBody;
  int status;
  std::string body;
};

const RouteCase routeCases[] = {
    {"GET", "/api/agent-tools", "", "", 200, dumpJson(agentToolCatalog())},
    {"GET", "/api/agent-tools/context", "", "", 200,
     R"({"prompt":"No Chrome tab is attached to this turn."})"},
    {"POST", "/api/agent-tools/call", "", R"({"name":"shell"})", 200,
     R"({"error":"tool is not allowed","ok":false,"tool":"shell"})"},
    {"POST", "/api/agent-tools/call", "", "{", 200, R"({"error":"missing tool name","ok":false})"},
    {"POST", "/api/context-file", "name=a.png", "", 200, R"({"error":"empty file","ok":false})"},
    {"GET", "/api/local-file", "path=%2Fno+such", "", 404,
     R"({"error":"file is not available","ok":false})"},
    {"POST", "/api/agent-tools", "", "", 404, R"({"ok":false})"},
    {"GET", "/api/agent-tools/call", "", "", 404, R"({"ok":false})"},
    {"GET", "/api/context-file", "", "", 404, R"({"ok":false})"},
    {"GET", "/api/agent-tools/", "", "", 404, R"({"ok":false})"},
    {"GET", "/", "", "", 404, R"({"ok":false})"},
};

TEST(AnswerRoute, GoesByMethodAndPath) {
  for (const RouteCase& c : routeCases) {
    SCOPED_TRACE(std::string(c.method) + c.path);
    const HttpResponse response = answerTo(c.method, c.path, c.query, c.requestBody);
    EXPECT_TRUE(response.head.starts_with(c.status == 200 ? "HTTP/1.1 200 OK\r\n"
                                                          : "HTTP/1.1 404 Not Found\r\n"));
    EXPECT_NE(response.head.find("Access-Control-Allow-Origin: "), std::string::npos);
    EXPECT_EQ(response.body, c.body);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
