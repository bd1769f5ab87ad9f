#include "toolserver/routes.h"

#include "browser_tools/tool_catalog.h"
#include "common/product_names.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

const std::tuple<const char*, const char*, const char*, const char*, int, std::string>
    routeCases[] = {
        {"GET", "/api/agent-tools", "", "", 200, dumpJson(agentToolCatalog())},
        {"GET", "/api/agent-tools/context", "", "", 200,
         R"({"prompt":"No Chrome tab is attached to this turn."})"},
        {"POST", "/api/agent-tools/call", "", R"({"name":"shell"})", 200,
         R"({"error":"tool is not allowed","ok":false,"tool":"shell"})"},
        {"POST", "/api/agent-tools/call", "", "{", 200,
         R"({"error":"missing tool name","ok":false})"},
        {"POST", "/api/context-file", "name=a.png", "", 200,
         R"({"error":"empty file","ok":false})"},
        {"GET", "/api/local-file", "path=%2Fno+such", "", 404,
         R"({"error":"file is not available","ok":false})"},
        {"POST", "/api/agent-tools", "", "", 404, R"({"ok":false})"},
        {"GET", "/api/agent-tools/call", "", "", 404, R"({"ok":false})"},
        {"GET", "/api/context-file", "", "", 404, R"({"ok":false})"},
        {"GET", "/api/agent-tools/", "", "", 404, R"({"ok":false})"},
        {"GET", "/", "", "", 404, R"({"ok":false})"},
};

TEST(AnswerRoute, GoesByMethodAndPath) {
  for (const auto& [method, path, query, requestBody, status, body] : routeCases) {
    SCOPED_TRACE(std::string(method) + path);
    HttpRequest request;
    request.method = method;
    request.path = path;
    request.query = query;
    request.body = requestBody;
    request.origin = extensionOrigin;
    const HttpResponse response = answerRoute(request);
    EXPECT_TRUE(response.head.starts_with(status == 200 ? "HTTP/1.1 200 OK\r\n"
                                                        : "HTTP/1.1 404 Not Found\r\n"));
    EXPECT_NE(response.head.find("Access-Control-Allow-Origin: "), std::string::npos);
    EXPECT_EQ(response.body, body);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
