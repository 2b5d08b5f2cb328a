#include <sys/resource.h>

#include "support/process.h"

TEST(SessionTest, CountsItsConnectionsAndKeepsOnlySoManyRefused) {
  // Some sessions get no thread, a later one no descriptor.
  const TAgentProcess agent(
      {.config = "filteractive=1\n", .faults = "FAULT_THREAD='8 27 11' FAULT_ACCEPT='32 32 24'"});
  const long descriptors = Count(agent.Proc("fd"));
  {
    std::vector<TRawPeer> held;
    for (int i = 1; i <= 30; ++i) {
      const bool refused = i >= 8 && i <= 27;
      held.emplace_back(agent.port).Receive(refused ? 20000 : 1);
      ASSERT_EQ(refused, !held.back().Open()) << i;
    }
  }
  EXPECT_TRUE(agent.WaitFor("Cannot start session thread, connection closed\n", 20));
  TRawPeer stranger(agent.port, "127.0.0.2");
  EXPECT_TRUE(stranger.Open() && stranger.Receive().empty() && !stranger.Open());
  const TReply info = agent.Ask("GetInfo");
  EXPECT_EQ("200", info.code) << "the refused connection is to be given up";
  int asked = 1;  // beside the ten that were held, which may not all have begun
  EXPECT_TRUE(
      Await([&] { return agent.Info("OpenedConnections") == std::to_string(10 + ++asked); }));
  EXPECT_EQ("1", Named(info, "FailedConnections"));
  EXPECT_TRUE(Await([&] { return Count(agent.Proc("fd")) == descriptors; }));
  EXPECT_TRUE(agent.Holds("]\t 127.0.0.2\t TCP connection rejected\n", 1, "log2.txt"));
  EXPECT_TRUE(agent.Holds("]\t 127.0.0.1\t TCP connection accepted\n", 31, "log1.txt"));

  for (int i = 0; i < 3000; ++i) TRawPeer(agent.port, "127.0.0.2");
  EXPECT_EQ("3001", agent.Info("FailedConnections"));
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  const long most = std::min<long>(2048, limit.rlim_max / 2);
  EXPECT_GT(25, std::abs(Count(agent.Proc("fd")) - most - 25));
  // What waits for a descriptor of its own does so beyond the thousandth too.
  const TLoopbackPeer service(TLoopbackPeer::kTcp, {.text = "hello", .after = 2});
  const std::string port = std::to_string(service.Port());
  EXPECT_EQ("200", agent.Ask("TEST-TCP", {"127.0.0.1", port, "5000", "hi", "5"}).code);
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {"/bin/true", "", "", "10"}).text);
}

TEST(SessionTest, AssemblesARequestAndClosesWithoutAReplyOnAnythingElse) {
  const TAgentProcess agent({.config = "host=\n"});
  TRawPeer peer(agent.port, "127.0.0.2");  // from where nobody may administrate
  for (const char byte : Packet("QUIT")) {
    ASSERT_TRUE(peer.Send({&byte, 1}));
    std::this_thread::yield();
  }
  EXPECT_EQ("600\n\r", peer.Reply().text);
  EXPECT_FALSE(peer.Open());  // by the agent
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.2\t <-- Correct VX request received\n"));
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.2\t --> request processed (600)\n"));
  EXPECT_EQ("500\n\r", agent.Ask("%s%n").text);
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.1\t --> request rejected or operation failed (500)\n"));
  EXPECT_TRUE(agent.Holds("]\t 127.0.0.1\t Unknown command \"%s%n\"\n"));
  EXPECT_EQ("500\n\r", agent.Ask("").text);
  EXPECT_TRUE(agent.Holds("]\t 127.0.0.1\t Void request received\n"));
  ASSERT_TRUE(
      (peer = TRawPeer(agent.port)).Send(BuildRequest(kPassword, kSessionKey, "GetInfo\n")));
  EXPECT_EQ("502\n\r", peer.Reply().text);
  EXPECT_TRUE(agent.Holds("]\t 127.0.0.1\t EndOfTransmission signal missed\n"));
  for (const std::string& bytes : {Packet("GetInfo") + "x", std::string(14, '\0')}) {
    TRawPeer other(agent.port);
    EXPECT_TRUE(other.Send(bytes) && other.Receive().empty() && !other.Open());
  }
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.1\t <-- Invalid VX request received\n", 2));
  EXPECT_TRUE(agent.WaitForSessions(1));
}

TEST(SessionTest, DropsSilentPeersByTheTimeout) {
  const TAgentProcess below({"timeout=999\n"}), none({"timeout=-1\n"}), two({"timeout=2000\n"});
  TRawPeer dropped(below.port), kept(none.port), renewed(two.port), clock(below.port);
  EXPECT_TRUE(clock.Ask("TEST-ExternalPrg", {"sleep 1.9", "", "", "9000"}));
  EXPECT_TRUE(dropped.Send("half a") && kept.Send("half a") && renewed.Send("half a"));
  const long long first = NowMs();
  TRawPeer cut(below.port);  // a transfer, which the limit does not touch
  ASSERT_TRUE(cut.Ask("UpgradeCode", {"100"}));
  EXPECT_EQ("501\nWrong file parameter(s)\n\r", cut.Reply(true).text);
  renewed.Receive(1500);
  const long long second = NowMs();
  renewed.Send("packet");
  clock.Receive();
  dropped.Receive(1);
  EXPECT_FALSE(dropped.Open()) << "its limit is the end of the second";
  renewed.Receive();
  EXPECT_FALSE(renewed.Open());
  // On a machine that is busy the first chunk's time may have been over before the second came.
  EXPECT_LE(2000, NowMs() - (second - first < 2000 ? second : first));
  EXPECT_TRUE(kept.Receive(1).empty() && kept.Open());
  EXPECT_TRUE(cut.Send("x") && below.WaitFor("x", 1, "tmp/qov__.upd"));
  cut = TRawPeer(0);
  EXPECT_TRUE(below.WaitForSessions(1));
  EXPECT_EQ("302\n\r", below.Ask("UpgradeCode", {"1000"}).text) << "it keeps its claim";
}

TEST(SessionTest, AnswersTwoHundredAtOnceWhileOthersWait) {
  const TAgentProcess agent;
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  const std::string port = std::to_string(silent.Port());
  std::vector<TRawPeer> peers;
  for (int i = 0; i < 4; ++i)
    peers.emplace_back(agent.port).Ask("TEST-TCP", {"127.0.0.1", port, "60000", "1", "1"});
  ASSERT_TRUE(agent.WaitForSessions(5));
  const auto pages = [&] { return atol(ReadFile(agent.Proc("statm")).c_str()); };
  const long before = pages();
  for (int i = 0; i < 200; ++i) EXPECT_EQ("200", agent.Ask("GetInfo").code);
  EXPECT_GT(12, Count(agent.Proc("task"))) << "one behind the other, each on the former's thread";
  for (int i = 0; i < 200; ++i) peers.emplace_back(agent.port);
  ASSERT_TRUE(agent.WaitForSessions(205));
  for (int i = 4; i < 204; ++i) ASSERT_TRUE(peers[i].Ask("GetInfo"));
  for (int i = 4; i < 204; ++i) EXPECT_EQ("200", peers[i].Reply().code);
  EXPECT_TRUE(agent.WaitFor("]\t qov\t\t Session closed, wait for next ..\n", 402));
  EXPECT_TRUE(agent.WaitForSessions(5));
  // A thread that were not detached would leave its stack of 8 MiB.
  EXPECT_TRUE(Await([&] { return Count(agent.Proc("task")) < 7; }));
  EXPECT_GT(100 * 2048, pages() - before);
}

TEST(SessionTest, AFailedAllocationCostsItsOwnConnection) {
  if (kSanitized) GTEST_SKIP();
  const TAgentProcess agent({.faults = "FAULT_MEMORY=1"});
  const long descriptors = Count(agent.Proc("fd"));
  const std::string log = agent.folder.File("log", "a\nb\n");
  // Packets, how often they are sent, whether one of them is answered.
  const std::tuple<std::string, int, bool> cases[] = {
      {BuildRequest("wrong", kSessionKey, "GetInfo\n\r"), 100, false},
      {Packet("GetInfo"), 200, true},
      {Packet("TEST-TextLog", {log, "'b' or 'c'", "0", "1", "", "", "", "", "1"}), 150, true},
      {Packet("GetFilesList", {agent.folder.Path(), "*", "1", "1"}), 150, true},
      {Packet("TEST-ExternalPrg", {"/bin/sh -c 'exit 3'", "/", "", "9000"}), 150, true},
      {Packet("SetSettings", {"Comment=new", "UDP=0"}), 900, true}};
  for (const auto& [packet, times, answered] : cases) {
    bool any = false;
    for (int i = 0; i < times; ++i) {
      TRawPeer peer(agent.port);
      ASSERT_TRUE(peer.Send(packet)) << i;
      any |= peer.Reply().code == "200";
      ASSERT_FALSE(peer.Open()) << i;
    }
    EXPECT_EQ(answered, any);
  }
  EXPECT_TRUE(agent.Holds("Out of memory, connection closed\n", 300, "log2.txt"));
  EXPECT_TRUE(Await([&] { return agent.Info("Comment") == "new"; }));
  EXPECT_TRUE(Await([&] { return Count(agent.Proc("fd")) == descriptors; }));
}

TEST(SessionTest, GivesMemoryBack) {
  if (kSanitized) GTEST_SKIP();
  const TAgentProcess agent;
  const auto ownKb = [&] {
    const std::string status = ReadFile(agent.Proc("status"));
    return atol(&status[status.find("RssAnon:") + 8]);
  };
  const std::string text(4'000'000, 'x');
  const long idle = ownKb();
  for (const char* password : {"wrong", kPassword, kPassword}) {
    const std::string packet = BuildRequest(password, kSessionKey, text);
    std::vector<TRawPeer> peers;
    for (int i = 0; i < 8; ++i)
      ASSERT_TRUE(peers.emplace_back(agent.port).Send(packet.substr(0, 3'900'000)));
    ASSERT_TRUE(agent.WaitForSessions(9));
    EXPECT_TRUE(password == kPassword || ownKb() < idle + 3000) << ownKb();
    peers.clear();
    EXPECT_TRUE(Await([&] { return ownKb() < idle + 3000; }, 8000)) << ownKb();
  }
}

TEST(SessionTest, WaitsLooselyAndLeavesNothingOfThatToAChildOrTheNext) {
  const std::string slack = "/proc/self/timerslack_ns";
  const TAgentProcess agent;
  const std::string looks = "cd " + agent.Proc("task") + "; for i in *; do cat /proc/$i/" +
                            "timerslack_ns; done | grep -qx 5000000";
  const auto loose = [&] { return system(looks.c_str()) == 0; };
  const auto ask = [&](TRawPeer& peer) {
    peer.Ask("TEST-ShellScript", {"/bin/sh %script%", "cat " + slack, "", "", ""});
    EXPECT_EQ(ReadFile(slack), peer.Reply().values.at(0) + '\n');
  };
  {
    const TRawPeer silent(agent.port);
    EXPECT_TRUE(Await(loose));
  }
  ASSERT_TRUE(agent.WaitFor("Session closed"));
  TRawPeer next(agent.port);  // on the same thread
  ask(next);
  TRawPeer waiting(agent.port);
  EXPECT_TRUE(Await(loose));
  ask(waiting);
}

TEST(ChildrenTest, AreCollectedByALaterImageAndDoNotHoldItsPort) {
  TAgentProcess killed;
  const std::string line =
      "/bin/sh -c 'sleep 60 & echo $$ $! >" + killed.folder.Path("pids") + "; exec sleep 60'";
  EXPECT_EQ("200\n0\n\r", killed.Ask("TEST-ExternalPrg", {line, "", "", "-1"}).text);
  pid_t child = -1, orphan = -1;
  ASSERT_EQ(2, sscanf(killed.ReadFile("pids").c_str(), "%d %d", &child, &orphan));
  EXPECT_EQ("200", killed.Ask("ReloadApp").code);
  ASSERT_TRUE(killed.WaitFor("Listening...\n", 2));
  ASSERT_EQ(0, kill(child, SIGKILL));
  EXPECT_TRUE(Await([&] { return kill(child, 0) != 0; })) << "a zombie is left";

  killed.Signal(SIGKILL);
  EXPECT_EQ(1000 + SIGKILL, killed.Wait());
  const TAgentProcess next({.switches = "-i -p " + std::to_string(killed.port)});
  EXPECT_TRUE(killed.WaitForPort(true));
  EXPECT_EQ(0, kill(orphan, SIGKILL)) << "it must still have been running";
}

TEST(ChildrenTest, HelpersCountAndListProcesses) {
  const TAgentProcess agent;
  const std::string name = "q." + std::to_string(getpid()), program = agent.folder.Path(name);
  fs::copy_file("/bin/sleep", program);
  const auto sleeper = [&](const std::string& called, const std::string& path) {
    return TProcess("exec bash -c 'exec -a \"" + called + "\" " + path + " 60'");
  };
  const std::string longer = name + "-longer than fifteen bytes";
  const TProcess sleepers[] = {sleeper(program, program), sleeper("other", program),
                               sleeper("/x/" + name, "/bin/sleep"), sleeper("/" + longer, program)};
  const auto count = [&](const std::string& of) {
    return agent.Ask("TEST-Process", {"", of}).text;
  };
  EXPECT_TRUE(Await([&] { return count(name) == "200\n4\n\r"; })) << count(name);
  EXPECT_EQ("200\n1\n\r", count(longer));
  EXPECT_EQ("200\n0\n\r", count("'q?'" + name.substr(2))) << "no pattern";
  EXPECT_EQ("200\n0\n\r", count("proccount"));
  EXPECT_EQ("301\nScript error\n\r", count("' '; exit"));
  // What a later load settles holds for children, too.
  agent.WriteConfig("tmpdir=" + agent.folder.Folder("later") + "\n");
  EXPECT_EQ("200", agent.Ask("ReloadCfg").code);
  EXPECT_EQ("200\n" + agent.folder.Path("later\n\n\r"),
            agent.Ask("TEST-ShellScript", {"/bin/sh %script%", "echo $TMPDIR"}).text);
  EXPECT_THAT(agent.Ask("GetProcessesList").text,
              testing::HasSubstr("%0D%0A" + name + "%0D%0A" + name + "%0D%0A"));
  agent.WriteConfig("tmpdir=/\n");  // which is "", and not none
  EXPECT_EQ("200", agent.Ask("ReloadCfg").code);
  const std::string length = "/bin/sh -c 'exit ${#TMPDIR}'";
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {length, "", "", "9000"}).text);
}

TEST(StressTest, AnswersThroughAStormOfHangupsFromOneRecord) {
  const TAgentProcess agent({.config = "comment=0\nupdateaddr=0\n", .switches = "-d"});
  const auto repeat = [](auto right) {
    return std::jthread([right](const std::stop_token& stop) {
      do EXPECT_TRUE(right());
      while (!stop.stop_requested());
    });
  };
  std::jthread saving = repeat([&] {
    return agent.Ask("SetSettings", {"Timeout=5000", "Ping=0"}).code == "200";
  });
  const std::jthread asking = repeat([&] {
    const TReply reply = agent.Ask("GetSettings");
    return reply.code == "200" && Named(reply, "Comment") == Named(reply, "UpdateAddr");
  });
  // A load starts from an empty password, which nobody may ever see.
  const std::jthread guessing = repeat([&, packet = BuildRequest("", kSessionKey, "GetInfo\n\r")] {
    TRawPeer peer(agent.port);
    return peer.Send(packet) && peer.Receive().empty();
  });
  const auto load = [&](const std::string& mark) {
    agent.WriteConfig("comment=" + mark + "\nupdateaddr=" + mark + "\n");
    return agent.Signal(SIGHUP);
  };
  for (int i = 1; i < Repeats(400, 2000); ++i) {
    EXPECT_TRUE(i % 20 == 0 ? load(std::to_string(i)) : agent.Signal(SIGHUP));
    usleep(5000);
  }
  // What is saved is what the agent holds, so the last file comes when nothing is saved any more.
  saving = {};
  EXPECT_TRUE(load("last") && Await([&] { return agent.Info("Comment") == "last"; }));
}
