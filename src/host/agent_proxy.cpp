#include "host/agent_proxy.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "agent_process/supervision.h"
#include "channel/envelope.h"
#include "chat/preset_list.h"
#include "host/command_run.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_text.h"
#include "text/url_escape.h"
#include "text/utf8.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* requestFailed = "agent request failed";

std::string failed(JsonView request, std::string_view error) {
  return providerRpcError(request, foreignText(error));
}

std::string agentProxyCall(JsonView request, const wchar_t* verb, const std::string& path,
                           const std::string& body = {}) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return failed(request, error);
  const AgentAnswer answer =
      readAnswer(agentRequest(*port, verb, toWide(path), body), requestFailed);
  if (!answer.ok) return failed(request, answer.error);
  return providerRpcReply(request, dataText(answer));
}

std::string getPresets(JsonView request) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return failed(request, error);
  const AgentResponse response = agentRequest(*port, L"GET", L"/v1/models", "");
  json models;
  if (!isWholeAnswer(response) || !parseAnswer(response, models)) {
    return failed(request, "preset list failed");
  }
  return providerRpcReply(request, dumpJson({{"presets", normalizePresetList(models)}}));
}

std::string getCreditInfo(JsonView request) {
  return agentProxyCall(request, L"GET", "/v1/credit");
}

std::string listChatSessions(JsonView request) {
  return agentProxyCall(request, L"GET", "/v1/chat/sessions");
}

// The id goes as it came; what cannot stand in a request line is escaped below.
std::string sessionPath(JsonView request) {
  return "/v1/chat/session?id=" + std::string(readText(request, "id"));
}

std::string loadChatSession(JsonView request) {
  return agentProxyCall(request, L"GET", sessionPath(request));
}

std::string deleteChatSession(JsonView request) {
  return agentProxyCall(request, L"DELETE", sessionPath(request));
}

std::string saveChatSession(JsonView request) {
  return agentProxyCall(request, L"POST", "/v1/chat/sessions", request["session"].compactText());
}

std::string subscribeCommandEvents(JsonView request) {
  std::string error;
  if (!ensureAgent(error)) return failed(request, error);
  return providerRpcReply(request, "{}");
}

std::string listChatCommands(JsonView request) {
  return agentProxyCall(request, L"GET", "/v1/chat/commands");
}

std::string listChatSkills(JsonView request) {
  const std::string_view folder = readText(request, "cwd");
  const std::string query = folder.empty() ? "" : "?cwd=" + percentEncode(folder);
  return agentProxyCall(request, L"GET", "/v1/chat/skills" + query);
}

std::string getRecentPaths(JsonView request) {
  return agentProxyCall(request, L"GET", "/v1/chat/recent-paths");
}

std::string getTypeaheadPresets(JsonView request) {
  return agentProxyCall(request, L"GET", "/v1/chat/typeahead-presets");
}

// The agent gives a search up when a newer one starts.
std::string cancelSearch(JsonView request) { return providerRpcReply(request, "{}"); }

void copyIf(JsonObjectText& body, std::string_view key, JsonView member, bool wanted) {
  if (wanted) body.view(key, member);
}

std::string startSearch(JsonView request) {
  const JsonView inputs = request["inputs"];
  const JsonView scopes = request["user"]["scopes"];
  std::string text;
  JsonObjectText body(text);
  body.member("headLimit") += std::to_string(readInt64(request, "headLimit", 0));
  copyIf(body, "inputs", inputs, inputs.isArray());
  body.text("query", readText(request, "query"));
  copyIf(body, "scopes", scopes, scopes.isArray());
  body.end();
  return agentProxyCall(request, L"POST", "/v1/chat/search-names", text);
}

std::string rankPageModel(JsonView request) {
  const JsonView model = request["model"];
  const JsonView query = request["query"];
  const JsonView topK = request["topK"];
  std::string text;
  JsonObjectText body(text);
  copyIf(body, "model", model, model.isObject());
  copyIf(body, "query", query, query.isString());
  copyIf(body, "topK", topK, topK.isNumber());
  body.end();
  return agentProxyCall(request, L"POST", "/v1/browser/page-model/rank", text);
}

std::string getArtifacts(JsonView request) {
  const std::int64_t limit = readInt64(request, "limit", 0);
  const std::string query = limit < 1 ? "" : "?limit=" + std::to_string(limit);
  return agentProxyCall(request, L"GET", "/v1/chat/vumbo-artifacts" + query);
}

struct Method {
  std::string_view name;
  std::string (*answer)(JsonView request);
};

constexpr Method methods[] = {
    {"settingsChatPresetsGet", getPresets},
    {"getChatPresets", getPresets},
    {"getCreditInfo", getCreditInfo},
    {"listChatSessions", listChatSessions},
    {"loadChatSession", loadChatSession},
    {"saveChatSession", saveChatSession},
    {"deleteChatSession", deleteChatSession},
    {"commandEventsSubscribe", subscribeCommandEvents},
    {"commandRun", answerCommandRun},
    {"chatCommandsList", listChatCommands},
    {"chatSkillsList", listChatSkills},
    {"homeRecentPathsGet", getRecentPaths},
    {"typeaheadPresetsGet", getTypeaheadPresets},
    {"searchCancel", cancelSearch},
    {"searchCancelAll", cancelSearch},
    {"searchStart", startSearch},
    {"rankPageModel", rankPageModel},
    {"vumboArtifactsGet", getArtifacts},
};

// Posts to the agent for a plain kind and answers with the agent's "ok", or the best error text.
std::string postForAck(const wchar_t* path, const json& body, std::string_view fallback) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return ackError(error);
  const AgentAnswer answer =
      readAnswer(agentRequest(*port, L"POST", path, dumpJson(body)), fallback);
  return answer.ok ? ackReply() : ackError(explainedError(answer));
}

json pathsOf(JsonView request) {
  if (const JsonView paths = request["paths"]; paths.isArray()) return paths.toValue();
  return json::array({readText(request, "path")});
}

}  // namespace

std::string answerProviderRpc(JsonView request) {
  const std::string name(readText(request, "method"));
  const auto* known = std::find_if(std::begin(methods), std::end(methods),
                                   [&name](const Method& method) { return method.name == name; });
  if (known != std::end(methods)) return known->answer(request);
  // Whole: it is part of the reply, as it came in the message.
  return providerRpcError(request, "chrome host does not handle " + name);
}

std::string answerOpenPathsByAgent(JsonView request, bool fullscreen) {
  return postForAck(L"/v1/ui/open-file", {{"paths", pathsOf(request)}, {"fullscreen", fullscreen}},
                    "file did not open");
}

std::string answerSettings(JsonView request) {
  return postForAck(L"/v1/ui/open", {{"section", readText(request, "section", "chat")}},
                    "settings did not open");
}

std::string answerConsentReply(JsonView request) {
  json body = request.toValue();
  body.erase("kind");
  return postForAck(L"/v1/chat/consent", body, requestFailed);
}

}  // namespace media::win::chrome_inspect
