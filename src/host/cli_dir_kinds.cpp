#include "host/cli_dir_kinds.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "agent_process/cli_dir.h"
#include "agent_process/cli_settings.h"
#include "agent_process/supervision.h"
#include "channel/envelope.h"
#include "common/detached.h"
#include "shell/pickers.h"
#include "text/json_read.h"
#include "text/utf8.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

json cliDirReply(const json& request, bool ok, json members) {
  members["kind"] = "cliDir";
  members["ok"] = ok;
  return stampMessage(std::move(members), request);
}

json cliDirError(const json& request, std::string_view error) {
  return cliDirReply(request, false,
                     {{"dir", toUtf8(savedCliDir())}, {"error", foreignText(error)}});
}

json saveAndDescribe(const json& request, std::string_view dirUtf8) {
  std::string error;
  if (!validateAndSaveCliDir(dirUtf8, error)) return cliDirError(request, error);
  return cliDirReply(request, true, describeCliDir());
}

json browse(const json& request) {
  std::wstring folder;
  std::string error;
  pickCliFolder(folder, error);
  if (!error.empty()) return cliDirError(request, error);
  return folder.empty() ? answerCliDirGet(request) : saveAndDescribe(request, toUtf8(folder));
}

void browseAndReply(const json& request) {
  json reply;
  try {
    reply = browse(request);
  } catch (const std::exception& failure) {
    reply = cliDirError(request, failure.what());
  }
  sendReply(request, std::move(reply));
}

}  // namespace

json answerCliDirGet(const json& request) {
  return cliDirReply(request, true, {{"dir", toUtf8(savedCliDir())}});
}

json answerCliDirSet(const json& request) {
  return saveAndDescribe(request, readText(request, "dir"));
}

json answerCliDirApply(const json& request) {
  json reply = answerCliDirSet(request);
  if (reply.value("ok", false)) endUnusedAgent();
  return reply;
}

json answerCliDirBrowse(const json& request) {
  if (runDetached("cli folder picker", [request] { browseAndReply(request); })) return nullptr;
  return cliDirError(request, "folder picker did not open");
}

}  // namespace media::win::chrome_inspect
