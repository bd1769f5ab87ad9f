#include "setup/host_manifest.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/paths.h"
#include "common/product_names.h"
#include "setup/command_line.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/utf8.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::string_view originScheme = "chrome-extension://";

std::string ownOrigin() { return std::string(extensionOrigin) + "/"; }

// A browser refuses the whole manifest for one origin of another form.
bool isOrigin(const json& origin) {
  if (!origin.is_string()) return false;
  std::string_view text = origin.get_ref<const std::string&>();
  if (!text.starts_with(originScheme) || !text.ends_with("/")) return false;
  text.remove_prefix(originScheme.size());
  text.remove_suffix(1);
  return isExtensionId(text);
}

std::string faultInOrigins(const json& manifest) {
  const json* const origins = findArray(manifest, "allowed_origins");
  if (origins == nullptr) return "it has no list \"allowed_origins\"";
  for (const json& origin : *origins) {
    if (!isOrigin(origin))
      return "an allowed origin is none: " + foreignText(dumpJson(origin), 200);
  }
  if (std::ranges::find(*origins, json(ownOrigin())) == origins->end()) {
    return "it does not allow " + ownOrigin();
  }
  return {};
}

// What a browser would refuse, or our extension would miss; empty when there is nothing.
std::string faultIn(const json& manifest) {
  if (lenientText(manifest, "name") != nativeHostName) {
    return "its name is not \"" + std::string(nativeHostName) + "\"";
  }
  if (lenientText(manifest, "description").empty()) return "it has no description";
  if (lenientText(manifest, "type") != "stdio") return "its type is not \"stdio\"";
  if (lenientText(manifest, "path").empty()) return "it names no program";
  return faultInOrigins(manifest);
}

}  // namespace

std::wstring manifestPathFor(const std::wstring& program) {
  const std::size_t separator = program.find_last_of(L"/\\");
  const std::wstring folder =
      separator == std::wstring::npos ? std::wstring() : program.substr(0, separator);
  return joinPath(folder, toWide(nativeHostName) + L".json");
}

std::string manifestText(const std::wstring& program,
                         const std::vector<std::string>& moreExtensionIds) {
  std::vector<std::string> origins = {ownOrigin()};
  for (const std::string& id : moreExtensionIds) {
    std::string origin = std::string(originScheme) + id + "/";
    if (std::ranges::find(origins, origin) == origins.end()) origins.push_back(std::move(origin));
  }
  auto manifest = nlohmann::ordered_json::object();
  manifest["name"] = nativeHostName;
  manifest["description"] = "morva: the desktop assistant's side of the browser panel";
  manifest["path"] = toUtf8(program);
  manifest["type"] = "stdio";
  manifest["allowed_origins"] = origins;
  return manifest.dump(2) + "\n";
}

bool readManifest(std::string_view text, std::string& program, std::string& error) {
  json manifest;
  std::string parseError;
  if (parseJson(text, manifest, parseError) != ParseOutcome::ok || !manifest.is_object()) {
    error = "it is no JSON object";
    return false;
  }
  std::string fault = faultIn(manifest);
  if (!fault.empty()) {
    error = std::move(fault);
    return false;
  }
  program = lenientText(manifest, "path");
  return true;
}

}  // namespace media::win::chrome_inspect
