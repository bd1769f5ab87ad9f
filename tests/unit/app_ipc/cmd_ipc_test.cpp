#include "app_ipc/cmd_ipc.h"

#include "platform/clock.h"
#include "support/scripted_server.h"
#include "support/test_folder.h"
#include "support/test_pipe.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* token = "0b1C";
constexpr const char* nonce = "00fF";
const std::string challenge = frameOf(R"({"nonce":"00fF","other":1})");

// The application's end.
struct AppDouble : ScriptedServer {
  using Talk = std::function<void(const OwnedSocket&)>;
  explicit AppDouble(Talk talk)
      : ScriptedServer([talk = std::move(talk)](ServedConnection& c) { talk(c.socket()); }, false) {
  }
};

// Everything up to the end of the stream, or up to one whole frame.
std::string receiveFrame(const OwnedSocket& socket) {
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

// Asks for the proof and answers with the bytes `reply`.
AppDouble::Talk answering(std::string reply) {
  return [reply = std::move(reply)](const OwnedSocket& socket) {
    (void)sendTo(socket, challenge);
    if (!receiveFrame(socket).empty()) (void)sendTo(socket, reply);
  };
}

class CmdIpc : public testing::Test {
 protected:
  void announce(std::uint32_t port, const std::string& withToken = token) {
    const auto folder = appData_.path() / "Quenlark" / "morva-viewer" / "instances" / "run-ipc";
    fs::create_directories(folder);
    std::ofstream(folder / "a.json") << json{{"kind", "ui"},
                                             {"transport", "tcp"},
                                             {"pid", ownProcessId()},
                                             {"endpoint", std::to_string(port)},
                                             {"token", withToken}};
  }
  // The reply as text, or the error.
  static std::string exchange() {
    json reply;
    std::string error = "unset";
    if (cmdIpcExchange({{"a", 1}}, reply, error)) {
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
  for (const char* const bad : {"", "0", "012", "0g", "g0", " 0", "0x", "-1", "\xC3\xBC"}) {
    EXPECT_EQ(cmdIpcProof(bad, "01"), "") << bad;
    EXPECT_EQ(cmdIpcProof("00", bad), "") << bad;
  }
}

TEST_F(CmdIpc, WrapsACommand) {
  std::string sent;
  {
    AppDouble app([&sent](const OwnedSocket& socket) {
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

std::string largestFrame() {
  std::string body = "{}";
  body.resize(16777216, ' ');
  return frameOf(body);
}

TEST_F(CmdIpc, ReturnsTheReplyOrReportsWhyThereIsNone) {
  const std::pair<std::string, std::string> replies[] = {
      {frameOf(R"({"ok":true})"), R"({"ok":true})"},
      {frameOf("[1]"), "[1]"},
      {frameOf(R"({"type":"error","error":"busy"})"), R"({"error":"busy","type":"error"})"},
      {frameOf(R"({"type":"note","error":"auth failed"})"),
       R"({"error":"auth failed","type":"note"})"},
      {frameOf(R"({"type":"error","error":"auth failed","x":1})"),
       "cmd_ipc authentication rejected"},
      {largestFrame(), "{}"},
      {frameHeader(16777217), "cmd_ipc frame too large"},
      {"", "cmd_ipc recv failed"},
      {frameOf("{}").substr(0, 5), "cmd_ipc recv failed"},
      {frameOf("{]"), "cmd_ipc recv failed"},
      {frameOf("\"\xFF\""), "cmd_ipc recv failed"},
  };
  std::atomic<const std::string*> current;
  AppDouble app([&current](const OwnedSocket& socket) { answering (*current)(socket); });
  announce(app.port());
  for (const auto& [reply, result] : replies) {
    current = &reply;
    EXPECT_EQ(exchange(), result) << reply.substr(0, 80);
  }
}

TEST_F(CmdIpc, NeedsAChallengeWithANonce) {
  const std::pair<std::string, const char*> challenges[] = {
      {"", "cmd_ipc recv failed"},
      {frameHeader(9).substr(2), "cmd_ipc recv failed"},
      {challenge.substr(0, challenge.size() - 1), "cmd_ipc recv failed"},
      {frameOf("{"), "cmd_ipc recv failed"},
      {frameOf(""), "cmd_ipc recv failed"},
      {frameOf(std::string(50'000, '[')), "cmd_ipc recv failed"},
      {frameHeader(0xFFFFFFFF), "cmd_ipc frame too large"},
      {frameOf("{}"), "cmd_ipc proof failed"},
      {frameOf(R"({"nonce":"000"})"), "cmd_ipc proof failed"},
      {frameOf(R"({"nonce":12})"), "cmd_ipc proof failed"},
      {frameOf(R"({"nonce":""})"), "cmd_ipc proof failed"},
      {frameOf(R"(["00fF"])"), "cmd_ipc proof failed"},
  };
  std::atomic<const std::string*> current;
  AppDouble app([&current](const OwnedSocket& socket) {
    (void)sendTo(socket, *current);
    finishSending(socket);
    EXPECT_EQ(receiveFrame(socket), "");  // nothing is sent without a proof
  });
  announce(app.port());
  for (const auto& [bytes, error] : challenges) {
    current = &bytes;
    EXPECT_EQ(exchange(), error) << bytes.substr(0, 80);
  }
}

TEST_F(CmdIpc, MakesNoProofOfATokenThatIsNone) {
  AppDouble app(answering(frameOf("{}")));
  announce(app.port(), "no hexadecimal");
  EXPECT_EQ(exchange(), "cmd_ipc proof failed");
}

TEST_F(CmdIpc, TakesFramesHoweverTheyAreCut) {
  const std::string reply = frameOf(R"({"ok":true})");
  std::atomic<std::size_t> cut = 0;
  AppDouble app([&](const OwnedSocket& socket) {
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

TEST_F(CmdIpc, LooksForTheApplicationAfterAFailedConnection) {
  EXPECT_EQ(exchange(), "morva is not running");
  announce(portWithoutListener());
  EXPECT_EQ(exchange(), "cmd_ipc connect failed");
  AppDouble app(answering(frameOf("{}")));
  announce(app.port());
  EXPECT_EQ(exchange(), "{}");  // at once
}

TEST_F(CmdIpc, RemembersTheApplicationForTwoSeconds) {
  AppDouble first(answering(frameOf("1")));
  AppDouble second(answering(frameOf("2")));
  announce(first.port());
  const std::uint64_t before = tickCountMs();
  EXPECT_EQ(exchange(), "1");
  announce(second.port());
  while (exchange() != "2") {
  }
  EXPECT_GE(tickCountMs() - before, 2000U);
}

TEST_F(CmdIpc, ServesSeveralThreads) {
  AppDouble app(answering(frameOf("{}")));
  announce(app.port());
  TestThread other([] {
    for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange(), "{}");
  });
  for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange(), "{}");
}

}  // namespace
}  // namespace media::win::chrome_inspect
