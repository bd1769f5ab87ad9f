#include "host/cli_dir_kinds.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent_process/cli_dir.h"
#include "agent_process/cli_settings.h"
#include "agent_process/supervision.h"
#include "channel/envelope.h"
#include "common/detached.h"
#include "shell/pickers.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/utf8.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

std::string cliDirReply(bool ok, json members) {
  members["kind"] = "cliDir";
  members["ok"] = ok;
  return dumpJson(members);
}

std::string cliDirError(std::string_view error) {
  return cliDirReply(false, {{"dir", toUtf8(savedCliDir())}, {"error", foreignText(error)}});
}

bool save(std::string_view dirUtf8, std::string& reply) {
  std::string error;
  const bool saved = validateAndSaveCliDir(dirUtf8, error);
  reply = saved ? cliDirReply(true, describeCliDir()) : cliDirError(error);
  return saved;
}

std::string browse() {
  std::wstring folder;
  std::string reply;
  std::string error;
  pickCliFolder(folder, error);
  if (!error.empty()) return cliDirError(error);
  if (folder.empty()) return answerCliDirGet({});
  (void)save(toUtf8(folder), reply);
  return reply;
}

void browseAndReply(JsonView request) {
  std::string reply;
  try {
    reply = browse();
  } catch (const std::exception& failure) {
    reply = cliDirError(failure.what());
  }
  sendReply(request, reply);
}

}  // namespace

std::string answerCliDirGet(JsonView) {
  return cliDirReply(true, {{"dir", toUtf8(savedCliDir())}});
}

std::string answerCliDirSet(JsonView request) {
  std::string reply;
  (void)save(readText(request, "dir"), reply);
  return reply;
}

std::string answerCliDirApply(JsonView request) {
  std::string reply;
  if (save(readText(request, "dir"), reply)) endUnusedAgent();
  return reply;
}

std::string answerCliDirBrowse(JsonView request) {
  const auto browseFor = [text = request.compactText()] {
    JsonDocument copy;
    std::string ignored;  // it was read before
    (void)readJson(text, copy, ignored);
    browseAndReply(copy.root());
  };
  if (runDetached("cli folder picker", browseFor)) return {};
  return cliDirError("folder picker did not open");
}

}  // namespace media::win::chrome_inspect
