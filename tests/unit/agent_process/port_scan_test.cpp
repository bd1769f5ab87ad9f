#include "agent_process/port_scan.h"

#include "support/loopback_socket.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string ready = answerText("{}");
const std::string busy = answerText("", "503 Busy");

// Servers with an answer each; "" accepts and stays silent.
class Servers {
 public:
  explicit Servers(const std::vector<std::string>& answers) {
    for (const std::string& answer : answers) {
      servers_.push_back(
          std::make_unique<ScriptedServer>([this, answer](ServedConnection& connection) {
            if (answer.empty()) return over_.wait();
            (void)connection.send(answer);
          }));
      ports.push_back(servers_.back()->port());
    }
  }
  ~Servers() { over_.open(); }

  std::vector<std::uint16_t> ports;

 private:
  Gate over_;
  std::vector<std::unique_ptr<ScriptedServer>> servers_;
};

TEST(FirstReadyPort, IsTheFirstThatIsReady) {
  Servers servers({busy, ready, ready});
  servers.ports.insert(servers.ports.begin(), portWithoutListener());
  EXPECT_EQ(firstReadyPort(servers.ports), servers.ports[2]);
  EXPECT_EQ(firstReadyPort({servers.ports.data(), 2}), 0);
  EXPECT_EQ(firstReadyPort({}, 15'000), 0);
}

TEST(FirstReadyPort, DoesNotWaitForThePortsBehindIt) {
  const Servers servers({busy, ready, ""});
  EXPECT_EQ(firstReadyPort(servers.ports, 600'000), servers.ports[1]);
}

TEST(FirstReadyPort, TakesASilentPortForNotReadyAfterTheLimit) {
  const Servers servers({"", ready});
  EXPECT_EQ(firstReadyPort(servers.ports, 2000), servers.ports[1]);
  EXPECT_FALSE(isAgentReady(servers.ports[0], 300));
  EXPECT_TRUE(isAgentReady(servers.ports[1]));
}

TEST(PortScan, ReportsWhatEachPortAnswered) {
  const Servers servers({ready, busy, answerText("no JSON")});
  PortScan scan(servers.ports, probeLimitMs);
  const Readiness wanted[] = {Readiness::ready, Readiness::foreign, Readiness::notReady};
  for (std::size_t i = 0; i < servers.ports.size(); ++i) {
    const PortState state = scan.wait(i);
    EXPECT_EQ(state.port, servers.ports[i]);
    EXPECT_EQ(state.answer, wanted[i]) << i;
    EXPECT_LT(state.tookMs, probeLimitMs);
  }
}

TEST(PortScan, ReportsHowLongASilentPortWasWaitedFor) {
  const Servers servers({""});
  const PortState state = PortScan(servers.ports, 500).wait(0);
  EXPECT_EQ(state.answer, Readiness::none);
  EXPECT_GE(state.tookMs, 500 - 16);
}

}  // namespace
}  // namespace media::win::chrome_inspect
