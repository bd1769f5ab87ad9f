#include "toolserver/tool_providers.h"

#include <nlohmann/json.hpp>

#include "agent/agent_request.h"
#include "channel/host_log.h"
#include "platform/environment.h"
#include "text/json_parse.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::size_t maxToolVariable = 512;

void registerProvider(std::int32_t port, const json& provider) {
  // A provider that is refused, or not heard of, is missed by the agent alone.
  (void)agentRequest(static_cast<std::uint16_t>(port), L"POST", L"/v1/host-tool-providers",
                     dumpJson(provider));
}

void registerFromEnvironment(std::int32_t port) {
  std::wstring variable;
  if (!readEnvironment(L"MORVA_CHROME_HOST_TOOL", maxToolVariable, variable)) return;
  const std::string text = toUtf8(variable);
  const std::size_t sign = text.find('=');
  if (sign == std::string::npos || sign == 0 || sign + 1 == text.size()) return;
  registerProvider(port, {{"id", text.substr(0, sign)}, {"url", text.substr(sign + 1)}});
}

void registerBrowserTools(std::int32_t port, const ToolServerAddress& address) {
  const auto& [url, token] = address;
  if (url.empty()) {
    appendDebugLog("chrome browser tools did not bind");
    return;
  }
  registerProvider(port, {{"id", "chrome"}, {"url", url}, {"token", token}});
  appendDebugLog("chrome browser tools " + url.substr(0, url.find('?')));
}

}  // namespace

void registerHostToolProviders(std::int32_t port, const ToolServerAddress& browserTools) {
  registerFromEnvironment(port);
  registerBrowserTools(port, browserTools);
}

}  // namespace media::win::chrome_inspect
