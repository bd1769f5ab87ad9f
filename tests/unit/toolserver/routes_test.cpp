// The routes, and how their answers are written.
#include "toolserver/routes.h"

#include "browser_tools/tool_catalog.h"
#include "common/product_names.h"
#include "support/testing.h"
#include "text/json_parse.h"
#include "toolserver/http_response.h"

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

const std::string cors =
    "Access-Control-Allow-Origin: chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc\r\n"
    "Vary: Origin\r\nAccess-Control-Allow-Methods: GET, POST, OPTIONS\r\n"
    "Access-Control-Allow-Headers: Content-Type, X-Morva-Session\r\n";

TEST(CorsHeaders, AreForTheExtensionAlone) {
  const std::string origin(extensionOrigin);
  EXPECT_EQ(origin.size(), 51U);
  EXPECT_EQ(corsHeaders(origin), cors);
  for (const std::string& other : {""s, "null"s, origin + "\r\nX: y", "C" + origin.substr(1)}) {
    EXPECT_EQ(corsHeaders(other), "") << other;
  }
}

TEST(HttpResponse, IsWrittenByteForByte) {
  const HttpResponse plain = jsonResponse(400, "Bad Request", "{}", "");
  EXPECT_EQ(plain.head,
            "HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\n"
            "Content-Length: 2\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(plain.body, "{}");
  EXPECT_EQ(jsonResponse(204, "No Content", "", extensionOrigin).head,
            "HTTP/1.1 204 No Content\r\nContent-Type: application/json\r\n" + cors +
                "Content-Length: 0\r\nConnection: close\r\n\r\n");
  const HttpResponse response = fileResponse("image/png", std::string(3, '\0'), extensionOrigin);
  EXPECT_EQ(response.head, "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n" + cors +
                               "Cache-Control: no-store\r\nContent-Length: 3\r\n"
                               "Connection: close\r\n\r\n");
  EXPECT_EQ(response.body, std::string(3, '\0'));
}

}  // namespace
}  // namespace media::win::chrome_inspect
