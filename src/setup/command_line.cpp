#include "setup/command_line.h"

#include <algorithm>
#include <optional>

#include "setup/browsers.h"
#include "text/ascii.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t extensionIdLength = 32;
constexpr std::size_t maxShownBytes = 200;

struct CommandName {
  std::string_view name;
  UserCommand command;
};
constexpr CommandName commandNames[] = {
    {"--help", UserCommand::help},       {"-h", UserCommand::help},
    {"--version", UserCommand::version}, {"--register", UserCommand::registerHost},
    {"--doctor", UserCommand::doctor},   {"--unregister", UserCommand::unregisterHost},
    {"--mcp", UserCommand::mcp},
};

// What was said, before it is looked at as a whole.
struct Words {
  std::vector<std::string_view> commands;
  std::vector<std::string_view> options;  // names only, in order
  CommandLine line;
};

std::string shown(std::string_view word) { return "\"" + foreignText(word, maxShownBytes) + "\""; }

bool takeBrowser(std::string_view value, CommandLine& line, std::string& error) {
  const std::string name = foldCase(value);
  if (findBrowser(name) == nullptr) {
    error = "no browser " + shown(value) + "; there are " + browserNames();
    return false;
  }
  if (std::ranges::find(line.browsers, name) == line.browsers.end()) line.browsers.push_back(name);
  return true;
}

bool takeExtensionId(std::string_view value, CommandLine& line, std::string& error) {
  if (!isExtensionId(value)) {
    error = shown(value) + " is no extension id, which is 32 letters from a to p";
    return false;
  }
  line.extensionIds.emplace_back(value);
  return true;
}

bool takeDryRun(std::string_view /*value*/, CommandLine& line, std::string& /*error*/) {
  return line.dryRun = true;
}

bool takeJson(std::string_view /*value*/, CommandLine& line, std::string& /*error*/) {
  return line.json = true;
}

bool takeAllUsers(std::string_view /*value*/, CommandLine& line, std::string& /*error*/) {
  return line.allUsers = true;
}

struct Option {
  std::string_view name;
  bool hasValue;
  bool (*take)(std::string_view value, CommandLine& line, std::string& error);
  UserCommand goesWith[2];
};
constexpr Option options[] = {
    {"--browser", true, takeBrowser, {UserCommand::registerHost, UserCommand::unregisterHost}},
    {"--extension-id",
     true,
     takeExtensionId,
     {UserCommand::registerHost, UserCommand::registerHost}},
    {"--dry-run", false, takeDryRun, {UserCommand::registerHost, UserCommand::unregisterHost}},
    {"--all-users", false, takeAllUsers, {UserCommand::registerHost, UserCommand::unregisterHost}},
    {"--json", false, takeJson, {UserCommand::doctor, UserCommand::doctor}},
};

const Option* findOption(std::string_view name) {
  const auto* const found = std::ranges::find(options, name, &Option::name);
  return found == std::end(options) ? nullptr : found;
}

// The word after an option, or behind its "=".
bool valueOf(const Option& option, std::optional<std::string_view> given,
             const Arguments& arguments, std::size_t& at, std::string_view& value,
             std::string& error) {
  if (!option.hasValue) {
    if (given) error = std::string(option.name) + " takes no value";
    return !given;
  }
  if (!given && at + 1 < arguments.size()) given = arguments[++at];
  if (given) value = *given;
  if (value.empty()) error = std::string(option.name) + " needs a value";
  return !value.empty();
}

bool readWord(const Arguments& arguments, std::size_t& at, Words& words, std::string& error) {
  const std::string_view word = arguments[at];
  if (const auto* const command = std::ranges::find(commandNames, word, &CommandName::name);
      command != std::end(commandNames)) {
    words.commands.push_back(word);
    words.line.command = command->command;
    return true;
  }
  const std::size_t equals = word.find('=');
  const Option* const option = findOption(word.substr(0, equals));
  if (option == nullptr) {
    error = (word.starts_with("-") ? "unknown option " : "unexpected argument ") + shown(word);
    return false;
  }
  std::optional<std::string_view> given;
  if (equals != std::string_view::npos) given = word.substr(equals + 1);
  std::string_view value;
  words.options.push_back(option->name);
  return valueOf(*option, given, arguments, at, value, error) &&
         option->take(value, words.line, error);
}

bool fitTogether(const Words& words, std::string& error) {
  if (words.commands.size() > 1) {
    error = std::string(words.commands[0]) + " and " + std::string(words.commands[1]) +
            " do not go together";
    return false;
  }
  for (const std::string_view name : words.options) {
    const auto& goesWith = findOption(name)->goesWith;
    if (words.commands.empty() ||
        std::ranges::find(goesWith, words.line.command) == std::end(goesWith)) {
      error = std::string(name) + " does not go " +
              (words.commands.empty() ? "alone" : "with " + std::string(words.commands[0]));
      return false;
    }
  }
  return true;
}

bool isOrigin(std::string_view argument) { return argument.starts_with("chrome-extension://"); }

}  // namespace

bool isStartedByBrowser(const Arguments& arguments) {
  return std::ranges::any_of(arguments, isOrigin);
}

bool isUserCommand(const Arguments& arguments, const std::function<bool()>& inputIsConsole) {
  const std::string_view first = arguments.empty() ? std::string_view() : arguments.front();
  if (isOrigin(first) || first.starts_with("--parent-window=")) return false;
  return first.starts_with("-") || inputIsConsole();
}

bool readCommandLine(const Arguments& arguments, CommandLine& commandLine, std::string& error) {
  Words words;
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    if (!readWord(arguments, at, words, error)) return false;
  }
  if (!fitTogether(words, error)) return false;
  commandLine = std::move(words.line);
  return true;
}

bool isExtensionId(std::string_view id) {
  return id.size() == extensionIdLength &&
         std::ranges::all_of(id, [](char c) { return c >= 'a' && c <= 'p'; });
}

}  // namespace media::win::chrome_inspect
