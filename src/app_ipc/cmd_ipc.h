#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

// The channel to the running desktop application: one short TCP connection to 127.0.0.1 per
// request, on which the host proves that it knows the instance's token without sending it.
namespace media::win::chrome_inspect {

// Runs a command of the application. True when it answered, whatever the answer, which is then in
// `reply`. False with `error`: "morva is not running", "winsock startup failed", "cmd_ipc socket
// failed", "cmd_ipc connect failed", "cmd_ipc recv failed", "cmd_ipc frame too large", "cmd_ipc
// proof failed", "cmd_ipc send failed" or "cmd_ipc authentication rejected".
// Blocks up to 15 s for each read or write, and up to 30 s for all of them. Threads: any.
bool commandRun(const nlohmann::json& request, nlohmann::json& reply, std::string& error);
bool cmdIpcExchange(const nlohmann::json& message, nlohmann::json& reply, std::string& error);

// The proof for a challenge: SHA-256 of nonce and token, both decoded from hexadecimal, as
// hexadecimal digits. Empty when either is not hexadecimal, or is empty.
std::string cmdIpcProof(std::string_view nonce, std::string_view token);

}  // namespace media::win::chrome_inspect
