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

json agentProxyCall(const json& request, const wchar_t* verb, const std::string& path,
                    const std::string& body = {}) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return failed(request, error);
  AgentAnswer answer = readAnswer(agentRequest(*port, verb, toWide(path), body), requestFailed);
  if (!answer.ok) return failed(request, answer.error);
  return providerRpcReply(request, true, takeData(answer.value));
}

json getPresets(const json& request) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return failed(request, error);
  const AgentResponse response = agentRequest(*port, L"GET", L"/v1/models", "");
  json models;
  if (!isWholeAnswer(response) || !parseAnswer(response, models)) {
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
json postForAck(const json& request, const wchar_t* path, const json& body,
                std::string_view fallback) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return ackError(request, error);
  const AgentAnswer answer =
      readAnswer(agentRequest(*port, L"POST", path, dumpJson(body)), fallback);
  return answer.ok ? ackReply(request) : ackError(request, explainedError(answer));
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
  // Whole: it is part of the reply, as it came in the message.
  return providerRpcReply(request, false, "chrome host does not handle " + name);
}

json answerOpenPathsByAgent(const json& request, bool fullscreen) {
  return postForAck(request, L"/v1/ui/open-file",
                    {{"paths", pathsOf(request)}, {"fullscreen", fullscreen}}, "file did not open");
}

json answerSettings(const json& request) {
  return postForAck(request, L"/v1/ui/open", {{"section", readText(request, "section", "chat")}},
                    "settings did not open");
}

json answerConsentReply(const json& request) {
  json body = request;
  body.erase("kind");
  return postForAck(request, L"/v1/chat/consent", body, requestFailed);
}

}  // namespace media::win::chrome_inspect
