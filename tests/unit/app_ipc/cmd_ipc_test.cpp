#include "app_ipc/cmd_ipc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/clock.h"
#include "support/http_outcome.h"
#include "support/loopback_socket.h"
#include "support/own_process.h"
#include "support/test_folder.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* token = "0b1C";
constexpr const char* nonce = "00fF";

std::string frameOf(std::string_view body) {
  const auto length = static_cast<std::uint32_t>(body.size());
  std::string frame(sizeof length, '\0');
  std::memcpy(frame.data(), &length, sizeof length);
  return frame.append(body);
}

const std::string challenge = frameOf(R"({"nonce":"00fF","other":1})");

// The application's end: one connection after the other, each given to the script.
class AppDouble {
 public:
  using Script = std::function<void(const LoopbackSocket&)>;
  explicit AppDouble(Script script) : script_(std::move(script)) {
    listener_ = listenOnLoopback(port_, 8);
    thread_ = std::make_unique<TestThread>([this] { serve(); });
  }
  ~AppDouble() {
    stopping_ = true;
    (void)connectToLoopback(port_);
    thread_.reset();
  }
  std::uint16_t port() const { return port_; }
  int connections() const { return connections_; }

 private:
  void serve() {
    for (;;) {
      const LoopbackSocket socket = acceptFrom(listener_);
      if (!socket || stopping_) return;
      ++connections_;
      script_(socket);
    }
  }

  const Script script_;
  std::uint16_t port_ = 0;
  LoopbackSocket listener_;
  std::atomic<bool> stopping_ = false;
  std::atomic<int> connections_ = 0;
  std::unique_ptr<TestThread> thread_;
};

// Everything up to the end of the stream, or up to one whole frame.
std::string receiveFrame(const LoopbackSocket& socket) {
  std::string bytes;
  char buffer[4096];
  std::uint32_t length = 0;
  while (bytes.size() < sizeof length || bytes.size() < sizeof length + length) {
    const std::size_t got = receiveFrom(socket, buffer, sizeof buffer);
    if (got == 0) return bytes;
    bytes.append(buffer, got);
    if (bytes.size() >= sizeof length) std::memcpy(&length, bytes.data(), sizeof length);
  }
  return bytes.substr(sizeof length);
}

class CmdIpc : public testing::Test {
 protected:
  void announce(std::uint32_t port, const std::string& withToken = token) {
    const auto folder = appData_.path() / "Quenlark" / "morva-viewer" / "instances" / "run-ipc";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "a.json") << json{{"kind", "ui"},
                                             {"transport", "tcp"},
                                             {"pid", ownProcessId()},
                                             {"endpoint", std::to_string(port)},
                                             {"token", withToken}};
  }
  // The reply as text, or the error.
  static std::string exchange(const json& message = {{"a", 1}}) {
    json reply;
    std::string error = "unset";
    if (cmdIpcExchange(message, reply, error)) {
      EXPECT_EQ(error, "unset");
      return reply.dump();
    }
    EXPECT_TRUE(reply.is_null());
    return error;
  }

  TestFolder appData_;
  EnvironmentVariable variable_{"APPDATA", appData_.path().string()};
};

TEST(CmdIpcProof, IsTheDigestOfNonceAndToken) {
  EXPECT_EQ(cmdIpcProof("00", "01"),
            "b413f47d13ee2fe6c845b2ee141af81de858df4ec549a58b7970bb96645bc8d2");
  EXPECT_EQ(cmdIpcProof("0011ffAB0011FFab0011ffAB0011ffAB", "0011ffAB0011ffAB0011ffAB0011ffab00fF"),
            "8b5c75c1ae6bfd003304d8f18e8e8efc52fd5b846acfe1939a5327401c94e892");
}

TEST(CmdIpcProof, IsNoneForWhatIsNotHexadecimal) {
  for (const char* const bad : {"", "0", "012", "0g", "g0", " 0", "0x", "-1", "\xC3\xBC"}) {
    EXPECT_EQ(cmdIpcProof(bad, "01"), "") << bad;
    EXPECT_EQ(cmdIpcProof("00", bad), "") << bad;
  }
}

TEST_F(CmdIpc, WrapsACommand) {
  std::string sent;
  {
    AppDouble app([&sent](const LoopbackSocket& socket) {
      (void)sendTo(socket, challenge);
      sent = receiveFrame(socket);
      (void)sendTo(socket, frameOf(R"({"ok":true})"));
    });
    announce(app.port());
    json reply;
    std::string error;
    EXPECT_TRUE(commandRun({{"id", "x"}, {"proof", "its own"}}, reply, error)) << error;
    EXPECT_EQ(reply.dump(), R"({"ok":true})");
  }
  EXPECT_EQ(sent, R"({"action":"command_run","proof":")" + cmdIpcProof(nonce, token) +
                      R"(","request":{"id":"x","proof":"its own"}})");
}

struct ExchangeCase {
  const char* name;
  std::string first;   // instead of the challenge
  std::string second;  // the reply's bytes; sent only after a request came
  const char* result;
};

std::string lengthOf(std::uint32_t length) {
  std::string bytes(sizeof length, '\0');
  std::memcpy(bytes.data(), &length, sizeof length);
  return bytes;
}

const ExchangeCase exchangeCases[] = {
    {"an answer", challenge, frameOf(R"({"ok":true})"), R"({"ok":true})"},
    {"an answer of any type", challenge, frameOf("[1]"), "[1]"},
    {"busy", challenge, frameOf(R"({"type":"error","error":"busy"})"),
     R"({"error":"busy","type":"error"})"},
    {"refused", challenge, frameOf(R"({"type":"error","error":"auth failed","x":1})"),
     "cmd_ipc authentication rejected"},
    {"a note that is no refusal", challenge, frameOf(R"({"type":"note","error":"auth failed"})"),
     R"({"error":"auth failed","type":"note"})"},
    {"nothing", "", "", "cmd_ipc recv failed"},
    {"half a length", lengthOf(9).substr(2), "", "cmd_ipc recv failed"},
    {"half a challenge", challenge.substr(0, challenge.size() - 1), "", "cmd_ipc recv failed"},
    {"no JSON", frameOf("{"), "", "cmd_ipc recv failed"},
    {"no bytes", frameOf(""), "", "cmd_ipc recv failed"},
    {"too deep", frameOf(std::string(50'000, '[')), "", "cmd_ipc recv failed"},
    {"one byte too many", lengthOf(16777217), "", "cmd_ipc frame too large"},
    {"far too many", lengthOf(0xFFFFFFFF), "", "cmd_ipc frame too large"},
    {"no nonce", frameOf("{}"), "", "cmd_ipc proof failed"},
    {"no object", frameOf(R"(["00fF"])"), "", "cmd_ipc proof failed"},
    {"an empty nonce", frameOf(R"({"nonce":""})"), "", "cmd_ipc proof failed"},
    {"an odd nonce", frameOf(R"({"nonce":"000"})"), "", "cmd_ipc proof failed"},
    {"a nonce that is a number", frameOf(R"({"nonce":12})"), "", "cmd_ipc proof failed"},
    {"no reply", challenge, "", "cmd_ipc recv failed"},
    {"half a reply", challenge, frameOf("{}").substr(0, 5), "cmd_ipc recv failed"},
    {"a reply too large", challenge, lengthOf(16777217), "cmd_ipc frame too large"},
    {"a reply that is no JSON", challenge, frameOf("{]"), "cmd_ipc recv failed"},
    {"a reply that is no UTF-8", challenge, frameOf("\"\xFF\""), "cmd_ipc recv failed"},
};

TEST_F(CmdIpc, GivesTheReplyOrTheFailuresText) {
  const ExchangeCase* current = nullptr;
  std::mutex mutex;  // guards `current` between the threads
  AppDouble app([&](const LoopbackSocket& socket) {
    const std::lock_guard lock(mutex);
    (void)sendTo(socket, current->first);
    if (current->first != challenge) return finishSending(socket);
    if (!receiveFrame(socket).empty()) (void)sendTo(socket, current->second);
  });
  announce(app.port());
  for (const ExchangeCase& c : exchangeCases) {
    SCOPED_TRACE(c.name);
    {
      const std::lock_guard lock(mutex);
      current = &c;
    }
    EXPECT_EQ(exchange(), c.result);
  }
}

TEST_F(CmdIpc, TakesFramesHoweverTheyAreCut) {
  const std::string reply = frameOf(R"({"ok":true})");
  std::atomic<std::size_t> cut = 0;
  AppDouble app([&](const LoopbackSocket& socket) {
    const std::size_t at = cut;
    (void)sendTo(socket, challenge.substr(0, at));
    (void)sendTo(socket, challenge.substr(at));
    (void)receiveFrame(socket);
    (void)sendTo(socket, reply.substr(0, std::min(at, reply.size())));
    (void)sendTo(socket, reply.substr(std::min(at, reply.size())));
  });
  announce(app.port());
  for (; cut <= challenge.size(); ++cut) ASSERT_EQ(exchange(), R"({"ok":true})") << cut;
}

TEST_F(CmdIpc, TakesAFrameOfTheLargestSize) {
  std::string body = R"({"ok":true})";
  body.resize(16777216, ' ');
  AppDouble app([&body](const LoopbackSocket& socket) {
    (void)sendTo(socket, challenge);
    (void)receiveFrame(socket);
    (void)sendTo(socket, frameOf(body));
  });
  announce(app.port());
  EXPECT_EQ(exchange(), R"({"ok":true})");
}

TEST_F(CmdIpc, GivesNoProofForATokenThatIsNone) {
  AppDouble app([](const LoopbackSocket& socket) {
    (void)sendTo(socket, challenge);
    EXPECT_EQ(receiveFrame(socket), "");  // nothing is sent
  });
  announce(app.port(), "no hexadecimal");
  EXPECT_EQ(exchange(), "cmd_ipc proof failed");
}

TEST_F(CmdIpc, LooksForTheApplicationAfterAFailedConnection) {
  EXPECT_EQ(exchange(), "morva is not running");
  announce(portWithoutListener());
  EXPECT_EQ(exchange(), "cmd_ipc connect failed");
  AppDouble app([](const LoopbackSocket& socket) {
    (void)sendTo(socket, challenge);
    (void)receiveFrame(socket);
    (void)sendTo(socket, frameOf("{}"));
  });
  announce(app.port());
  EXPECT_EQ(exchange(), "{}");  // at once
}

TEST_F(CmdIpc, RemembersTheApplicationForTwoSeconds) {
  const AppDouble::Script answer = [](const LoopbackSocket& socket) {
    (void)sendTo(socket, challenge);
    (void)receiveFrame(socket);
    (void)sendTo(socket, frameOf("{}"));
  };
  AppDouble first(answer);
  AppDouble second(answer);
  announce(first.port());
  EXPECT_EQ(exchange(), "{}");
  const std::uint64_t lookedUp = tickCountMs();
  announce(second.port());
  for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange(), "{}");
  if (tickCountMs() - lookedUp < 1900) {
    EXPECT_EQ(second.connections(), 0);
  }
  sleepMs(2100);
  EXPECT_EQ(exchange(), "{}");
  EXPECT_EQ(second.connections(), 1);
}

TEST_F(CmdIpc, ServesSeveralThreads) {
  AppDouble app([](const LoopbackSocket& socket) {
    (void)sendTo(socket, challenge);
    (void)receiveFrame(socket);
    (void)sendTo(socket, frameOf("{}"));
  });
  announce(app.port());
  TestThread other([] {
    for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange(), "{}");
  });
  for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange(), "{}");
}

}  // namespace
}  // namespace media::win::chrome_inspect
