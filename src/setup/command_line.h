#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// What a person may ask of this program. Chrome starts it too, with the extension's origin and
// "--parent-window=N"; that must never be taken for a command.
namespace media::win::chrome_inspect {

enum class UserCommand { help, version, registerHost, unregisterHost, doctor, mcp };

struct CommandLine {
  UserCommand command = UserCommand::help;
  std::vector<std::string> browsers;      // names of the table of browsers; empty: not said
  std::vector<std::string> extensionIds;  // besides the assistant's own
  bool dryRun = false;
  bool json = false;
  bool allUsers = false;
};

using Arguments = std::vector<std::string_view>;

// Whether a browser started the host: one of the arguments is the extension's origin.
bool isStartedByBrowser(const Arguments& arguments);

// Whether these arguments, without the program's name, are a person's: they begin with an option
// that is not the browser's, or do not name an extension while standard input is a console.
// `inputIsConsole` is asked only when it matters.
bool isUserCommand(const Arguments& arguments, const std::function<bool()>& inputIsConsole);

// Reads a person's arguments; none at all mean help. Failure: false, and `error` is one line that
// says what is wrong.
bool readCommandLine(const Arguments& arguments, CommandLine& commandLine, std::string& error);

// Whether `id` has the form of an extension's id: 32 letters from a to p.
bool isExtensionId(std::string_view id);

}  // namespace media::win::chrome_inspect
