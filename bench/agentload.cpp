// Load on one real agent over loopback: requests per second, latency, agent CPU per request, at 1
// and 16 connections; then what the agent costs at rest. Each request is a connection of its own.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/process.h"

namespace {

using TClock = std::chrono::steady_clock;

double MicrosecondsSince(TClock::time_point start) {
  return std::chrono::duration<double, std::micro>(TClock::now() - start).count();
}

/// Sends `count` requests one after the other; false when a reply is not as it should be.
bool Ask(int port, const std::string& packet, int count, std::vector<double>& latenciesUs) {
  for (int i = 0; i < count; ++i) {
    const TClock::time_point start = TClock::now();
    TRawPeer peer(port);
    if (!peer.Send(packet) || peer.Reply().state != TReplyState::complete) return false;
    latenciesUs.push_back(MicrosecondsSince(start));
  }
  return true;
}

/// CPU time that the process has used, milliseconds; -1 when it is gone.
long CpuMs(pid_t pid) {
  const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const size_t end = stat.rfind(')');
  long user = 0;
  long system = 0;
  if (end == std::string::npos ||
      sscanf(stat.c_str() + end + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user,
             &system) != 2) {
    return -1;
  }
  return (user + system) * 1000 / sysconf(_SC_CLK_TCK);
}

bool Measure(const char* name, pid_t pid, int port, const std::string& packet, int connections,
             int requests) {
  std::vector<std::vector<double>> latencies(static_cast<size_t>(connections));
  std::atomic<bool> good{true};
  const long cpuBefore = CpuMs(pid);
  const TClock::time_point start = TClock::now();
  std::vector<std::thread> clients;
  for (std::vector<double>& own : latencies) {
    clients.emplace_back([&, count = requests / connections] {
      if (!Ask(port, packet, count, own)) good = false;
    });
  }
  for (std::thread& client : clients) client.join();
  const double elapsedUs = MicrosecondsSince(start);
  const double cpuUs = 1000.0 * static_cast<double>(CpuMs(pid) - cpuBefore);

  std::vector<double> all;
  for (const auto& own : latencies) all.insert(all.end(), own.begin(), own.end());
  if (!good || all.empty()) return false;
  std::sort(all.begin(), all.end());
  printf("%-12s %11d %12.0f %10.0f %10.0f %12.1f\n", name, connections,
         static_cast<double>(all.size()) / elapsedUs * 1e6, all[all.size() / 2],
         all[all.size() * 99 / 100], cpuUs / static_cast<double>(all.size()));
  return true;
}

long OwnMemoryKb(const TAgentProcess& agent) {
  const std::string status = ReadFile(agent.Proc("status"));
  const size_t at = status.find("RssAnon:");
  return at == std::string::npos ? -1 : atol(status.c_str() + at + 8);
}

/// Own memory after 16 connections at a time have asked for everything that takes buffers, and
/// after each wave of strangers, who send 16 MB without the proof and go.
/// @param idle  what it had at the start, kB
void MeasureMemory(const TAgentProcess& agent, long idle) {
  const std::string file = agent.folder.File("data/large", std::string(8'000'001, 'x'));
  const std::string log = agent.folder.File("data/log", std::string(4'000'000, 'y') + "\nz\n");
  const std::string name(200, 'n');
  for (int i = 0; i < 60'000; ++i) agent.folder.File("list/" + name + std::to_string(i));
  const std::string data = agent.folder.Path("data"), list = agent.folder.Path("list");
  const std::string packets[] = {Packet("TEST-UNC", {"/"}),
                                 Packet("GetInfo"),
                                 Packet("TEST-FileCRC", {file}),
                                 Packet("TEST-FileCompare", {"1", file, file}),
                                 Packet("TEST-TextLog", {log, "z", "0", "1"}),
                                 Packet("TEST-FolderSize", {data, "1"}),
                                 Packet("GetFilesList", {list, "*", "", "1"})};
  const auto ask = [&](int times, const std::string& packet) {
    std::vector<std::thread> clients;
    for (int i = 0; i < 16; ++i) {
      clients.emplace_back([&] {
        for (int j = 0; j < times; ++j) {
          TRawPeer peer(agent.port);
          peer.Send(packet);
          peer.Receive(60'000);
        }
      });
    }
    for (std::thread& client : clients) client.join();
  };
  for (const std::string& packet : packets) ask(&packet < packets + 2 ? 200 : 2, packet);
  sleep(4);  // until the last threads that wait for a session have gone
  printf("own memory: %ld kB idle, %ld kB after requests of all kinds", idle, OwnMemoryKb(agent));
  std::string stranger = BuildRequest("wrong", kSessionKey, std::string(16'000'000, 'x'));
  for (int wave = 0; wave < 3; ++wave) {
    std::vector<TRawPeer> peers;
    long held = 0;
    for (int i = 0; i < 40; ++i) {
      peers.emplace_back(agent.port).Send(std::string_view(stranger).substr(0, 15'999'000));
      held = std::max(held, OwnMemoryKb(agent));
    }
    peers.clear();
    agent.WaitForSessions(1);
    printf(", %ld kB with 40 strangers and %ld kB after them", held, OwnMemoryKb(agent));
  }
  puts("");
}

}  // namespace

int main(int argc, char** argv) {
  const int requests = argc > 1 ? std::max(16, atoi(argv[1])) : 20000;
  TClock::time_point start = TClock::now();
  TAgentOptions options;
  options.config = "logsuccess=0\ntimeout=60000\n";
  options.switches = "-d";
  const TAgentProcess agent(options);
  const bool answered = agent.Ask("GetInfo").code == "200";
  const long idleKb = OwnMemoryKb(agent);
  printf("start to first answer: %.1f ms\n", MicrosecondsSince(start) / 1000);

  printf("%-12s %11s %12s %10s %10s %12s\n", "command", "connections", "requests/s", "median us",
         "99% us", "CPU us");
  const int barePort = FindFreePort();
  const TProcess bare("exec " QOV_BARE_SERVER " " + std::to_string(barePort));
  Await([&] { return TRawPeer(barePort).Open(); });
  const std::string unc = Packet("TEST-UNC", {"/"});
  bool good = answered;
  for (const int connections : {1, 16}) {
    good = good && Measure("TEST-UNC", agent.Pid(), agent.port, unc, connections, requests) &&
           Measure("bare server", bare.Pid(), barePort, unc, connections, requests) &&
           Measure("GetInfo", agent.Pid(), agent.port, Packet("GetInfo"), connections, requests);
  }

  constexpr unsigned kIdleSec = 5;
  const auto rest = [&](const char* what) {
    const long cpuBefore = CpuMs(agent.Pid());
    sleep(kIdleSec);
    printf("%s: %ld ms CPU in %u s\n", what, CpuMs(agent.Pid()) - cpuBefore, kIdleSec);
  };
  rest("at rest");
  {
    std::vector<TRawPeer> silent;
    for (int i = 0; i < 200; ++i) silent.emplace_back(agent.port);
    rest("200 silent connections");
  }
  MeasureMemory(agent, idleKb);
  return good ? 0 : 1;
}
