#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "core/owned.h"
#include "support/process.h"

namespace {

constexpr int kProbes = 50;

/// A name server that takes questions and never answers.
class TSilentNameServer {
 public:
  static constexpr char kAddress[] = "127.0.53.53";

  TSilentNameServer() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    inet_pton(AF_INET, kAddress, &address.sin_addr);
    listening_ = bind(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  bool Listening() const { return listening_; }
  bool WasAsked() const {
    pollfd wait = {socket_.Get(), POLLIN, 0};
    return poll(&wait, 1, 10000) > 0;
  }

 private:
  TFd socket_;
  bool listening_ = false;
};

TEST(StressLoadTest, ANameServerThatIsSilentHoldsNobodyElse) {
  const TTempDir folder;
  TPrivateMounts mounts;
  const TSilentNameServer server;
  if (!mounts.Usable() || !server.Listening()) GTEST_SKIP() << "takes the superuser";
  ASSERT_TRUE(mounts.Cover("/etc/resolv.conf",
                           folder.File("resolv.conf", "nameserver " + std::string(server.kAddress) +
                                                          "\noptions timeout:30 attempts:1\n")));
  const TAgentProcess agent;
  std::vector<TRawPeer> asking;
  for (const char* command : {"TEST-TCP", "TEST-TCP", "TEST-UDP", "TEST-UDP"}) {
    asking.emplace_back(agent.Port());
    ASSERT_TRUE(asking.back().Send(
        TAgentProcess::Packet(command, {"host.invalid", "9", "1000", "1", "1", "1"})));
  }
  ASSERT_TRUE(server.WasAsked());
  int right = 0;
  for (int i = 0; i < kProbes; ++i) right += AnswersInTime(agent, "GetInfo");
  EXPECT_EQ(kProbes, right);
  for (TRawPeer& peer : asking) {
    EXPECT_EQ("", peer.ReceiveAll(1));
    EXPECT_FALSE(peer.Closed()) << "the look-up is over already";
  }
}

TEST(StressLoadTest, ServesDescriptorsBeyondAThousand) {
  constexpr int kRefused = 1150;
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 2 * kRefused + 100) GTEST_SKIP() << "takes a higher descriptor limit";
  const TAgentProcess agent({.config = "filteractive=1\nlogfails=0\n"});
  const TLoopbackPeer service(TLoopbackPeer::kTcp, {.text = "hello", .after = 2});
  for (int i = 0; i < kRefused; ++i) TRawPeer(agent.Port(), "127.0.0.2");
  EXPECT_EQ(std::to_string(kRefused), agent.Info("FailedConnections"));
  ASSERT_LT(1024 + kProbes, agent.CountDescriptors());
  int right = 0;
  for (int i = 0; i < kProbes; ++i) right += AnswersInTime(agent, "GetInfo");
  EXPECT_EQ(kProbes, right);
  // What waits for a descriptor of its own does so beyond the thousandth too.
  EXPECT_TRUE(AnswersInTime(agent, "TEST-TCP",
                            {"127.0.0.1", std::to_string(service.Port()), "5000", "hi", "5"}));
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {"/bin/true", "", "", "10"}).text);
}

}  // namespace
