#include "host/agent_proxy.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "agent/agent_request.h"
#include "agent_process/supervision.h"
#include "channel/envelope.h"
#include "chat/preset_list.h"
#include "host/command_run.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/url_escape.h"
#include "text/utf8.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* requestFailed = "agent request failed";

json failed(const json& request, std::string_view error) {
  return providerRpcReply(request, false, foreignText(error));
}

AgentResponse callAgent(const wchar_t* verb, const std::string& path, const std::string& body) {
  return agentRequest(static_cast<std::uint16_t>(currentAgentPort()), verb, toWide(path), body);
}

// Parses the body of a response; one that is empty counts as an empty object.
bool parseBody(const AgentResponse& response, json& answer) {
  std::string ignored;
  const std::string_view body = response.body.empty() ? "{}" : std::string_view(response.body);
  return parseJson(body, answer, ignored) == ParseOutcome::ok;
}

json dataOf(json& answer) {
  const auto data = answer.find("data");
  return data == answer.end() ? json::object() : std::move(*data);
}

json relayAnswer(const json& request, const AgentResponse& response) {
  if (response.status != 200) {
    return failed(request, response.error.empty() ? requestFailed : response.error);
  }
  json answer;
  if (!parseBody(response, answer)) return failed(request, requestFailed);
  if (lenientBool(answer, "ok", false)) return providerRpcReply(request, true, dataOf(answer));
  return failed(request, lenientText(answer, "error", requestFailed));
}

json agentProxyCall(const json& request, const wchar_t* verb, const std::string& path,
                    const std::string& body = {}) {
  std::string error;
  if (!ensureAgent(error)) return failed(request, error);
  return relayAnswer(request, callAgent(verb, path, body));
}

json getPresets(const json& request) {
  std::string error;
  if (!ensureAgent(error)) return failed(request, error);
  const AgentResponse response = callAgent(L"GET", "/v1/models", "");
  json models;
  if (response.status != 200 || !response.error.empty() || !parseBody(response, models)) {
    return failed(request, "preset list failed");
  }
  return providerRpcReply(request, true, {{"presets", normalizePresetList(models)}});
}

json getCreditInfo(const json& request) { return agentProxyCall(request, L"GET", "/v1/credit"); }

json listChatSessions(const json& request) {
  return agentProxyCall(request, L"GET", "/v1/chat/sessions");
}

// The id goes as it came; what cannot stand in a request line is escaped below.
std::string sessionPath(const json& request) {
  return "/v1/chat/session?id=" + std::string(readText(request, "id"));
}

json loadChatSession(const json& request) {
  return agentProxyCall(request, L"GET", sessionPath(request));
}

json deleteChatSession(const json& request) {
  return agentProxyCall(request, L"DELETE", sessionPath(request));
}

json saveChatSession(const json& request) {
  const json session = request.value("session", json());
  return agentProxyCall(request, L"POST", "/v1/chat/sessions", dumpJson(session));
}

json subscribeCommandEvents(const json& request) {
  std::string error;
  if (!ensureAgent(error)) return failed(request, error);
  return providerRpcReply(request, true, json::object());
}

json listChatCommands(const json& request) {
  return agentProxyCall(request, L"GET", "/v1/chat/commands");
}

json listChatSkills(const json& request) {
  const std::string_view folder = readText(request, "cwd");
  const std::string query = folder.empty() ? "" : "?cwd=" + percentEncode(folder);
  return agentProxyCall(request, L"GET", "/v1/chat/skills" + query);
}

json getRecentPaths(const json& request) {
  return agentProxyCall(request, L"GET", "/v1/chat/recent-paths");
}

json getTypeaheadPresets(const json& request) {
  return agentProxyCall(request, L"GET", "/v1/chat/typeahead-presets");
}

// The agent gives a search up when a newer one starts.
json cancelSearch(const json& request) { return providerRpcReply(request, true, json::object()); }

json startSearch(const json& request) {
  json body = {{"query", readText(request, "query")},
               {"headLimit", readInt64(request, "headLimit", 0)}};
  if (const json* inputs = findArray(request, "inputs")) body["inputs"] = *inputs;
  const json* user = findObject(request, "user");
  const json* scopes = user != nullptr ? findArray(*user, "scopes") : nullptr;
  if (scopes != nullptr) body["scopes"] = *scopes;
  return agentProxyCall(request, L"POST", "/v1/chat/search-names", dumpJson(body));
}

json rankPageModel(const json& request) {
  json body = json::object();
  const auto copyIf = [&](const char* key, bool (json::*isType)() const noexcept) {
    const auto member = request.find(key);
    if (member != request.end() && ((*member).*isType)()) body[key] = *member;
  };
  copyIf("query", &json::is_string);
  copyIf("model", &json::is_object);
  copyIf("topK", &json::is_number);
  return agentProxyCall(request, L"POST", "/v1/browser/page-model/rank", dumpJson(body));
}

json getArtifacts(const json& request) {
  const std::int64_t limit = readInt64(request, "limit", 0);
  const std::string query = limit < 1 ? "" : "?limit=" + std::to_string(limit);
  return agentProxyCall(request, L"GET", "/v1/chat/vumbo-artifacts" + query);
}

struct Method {
  std::string_view name;
  json (*answer)(const json& request);
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
json postForAck(const json& request, const std::string& path, const json& body,
                std::string_view fallback) {
  std::string error;
  if (!ensureAgent(error)) return ackError(request, error);
  const AgentResponse response = callAgent(L"POST", path, dumpJson(body));
  json answer;
  const bool parsed = parseBody(response, answer);
  if (response.status == 200 && parsed && lenientBool(answer, "ok", false))
    return ackReply(request);
  return ackError(request, parsed ? lenientText(answer, "error", fallback) : fallback);
}

json pathsOf(const json& request) {
  if (const json* paths = findArray(request, "paths")) return *paths;
  return json::array({readText(request, "path")});
}

}  // namespace

json answerProviderRpc(const json& request) {
  const std::string name(readText(request, "method"));
  const auto* known = std::find_if(std::begin(methods), std::end(methods),
                                   [&name](const Method& method) { return method.name == name; });
  if (known != std::end(methods)) return known->answer(request);
  return failed(request, "chrome host does not handle " + name);
}

json openPaths(const json& request, bool fullscreen) {
  return postForAck(request, "/v1/ui/open-file",
                    {{"paths", pathsOf(request)}, {"fullscreen", fullscreen}}, "file did not open");
}

json openSettings(const json& request) {
  return postForAck(request, "/v1/ui/open", {{"section", readText(request, "section", "chat")}},
                    "settings did not open");
}

json replyConsent(const json& request) {
  json body = request;
  body.erase("kind");
  return postForAck(request, "/v1/chat/consent", body, requestFailed);
}

}  // namespace media::win::chrome_inspect
