#include "toolserver/routes.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "browser_tools/call_bridge.h"
#include "browser_tools/context_prompt.h"
#include "browser_tools/tool_catalog.h"
#include "text/json_parse.h"
#include "text/json_view.h"
#include "text/leaked.h"
#include "toolserver/drops.h"
#include "toolserver/local_files.h"
#include "toolserver/url_query.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

HttpResponse okJson(const HttpRequest& request, const json& body) {
  return jsonResponse(200, "OK", dumpJson(body), request.origin);
}

HttpResponse saveContextFile(const HttpRequest& request) {
  const std::string name = urlDecode(queryParam(request.query, "name"));
  return okJson(request, saveDroppedFile(name, request.body));
}

HttpResponse serveLocalFile(const HttpRequest& request) {
  std::string body;
  std::string contentType;
  std::string error;
  loadLocalFile(urlDecode(queryParam(request.query, "path")), body, contentType, error);
  if (error.empty()) return fileResponse(contentType, std::move(body), request.origin);
  const json refusal = {{"ok", false}, {"error", error}};
  return jsonResponse(404, "Not Found", dumpJson(refusal), request.origin);
}

HttpResponse offerTools(const HttpRequest& request) {
  static const std::string& catalogue = leaked<std::string>(dumpJson(agentToolCatalog()));
  return jsonResponse(200, "OK", catalogue, request.origin);
}

HttpResponse describeBrowser(const HttpRequest& request) {
  return okJson(request, {{"prompt", browserContextPrompt()}});
}

HttpResponse callTool(const HttpRequest& request) {
  json call;
  std::string ignored;  // what does not parse is a call without a name
  (void)parseJson(request.body, call, ignored);
  JsonDocument answer;
  HttpResponse response = jsonResponse(200, "OK", callBrowserTool(call, answer), request.origin);
  response.source = std::move(answer);
  return response;
}

struct Route {
  std::string_view method;
  std::string_view path;
  HttpResponse (*answer)(const HttpRequest& request);
};

constexpr Route routes[] = {
    {"POST", "/api/context-file", saveContextFile},
    {"GET", "/api/local-file", serveLocalFile},
    {"GET", "/api/agent-tools", offerTools},
    {"GET", "/api/agent-tools/context", describeBrowser},
    {"POST", "/api/agent-tools/call", callTool},
};

}  // namespace

HttpResponse answerRoute(const HttpRequest& request) {
  const auto* route = std::find_if(std::begin(routes), std::end(routes), [&](const Route& known) {
    return known.method == request.method && known.path == request.path;
  });
  if (route != std::end(routes)) return route->answer(request);
  return jsonResponse(404, "Not Found", R"({"ok":false})", request.origin);
}

}  // namespace media::win::chrome_inspect
