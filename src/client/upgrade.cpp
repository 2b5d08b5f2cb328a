#include "client/upgrade.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "client/vxwire.h"

using std::chrono::milliseconds;

/// The digest, enciphered under the session key: a reply packet without its length field.
static std::string Trailer(const std::string& key, const std::string& program) {
  return BuildReply(key, Md5(program)).substr(4);
}

/// True when the agent has something to say: it ends a transfer early when it cannot write.
static bool HasAnswer(int fd) {
  pollfd entry = {fd, POLLIN, 0};
  return poll(&entry, 1, 0) > 0;
}

/// Waits until the agent's host has acknowledged all bytes. @return false at the deadline
static bool WaitAcknowledged(int fd, TDeadline deadline) {
  int pending = 1;
  while (ioctl(fd, SIOCOUTQ, &pending) == 0 && pending > 0) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    if (HasAnswer(fd)) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

namespace {
/// One transfer over one connection.
class TTransfer {
 public:
  TTransfer(const TTarget& target, const std::string& program)
      : target_(target), program_(program), key_(NewSessionKey()) {}

  TAnswer Request();
  /// @param settle  time for the agent to read what its host has received
  TAnswer SendProgram(milliseconds settle, const TUpgradeProgress& progress);

 private:
  TDeadline Deadline() const { return DeadlineIn(target_.timeoutMs); }
  void Send(std::string_view bytes) { RequireDone(target_, connection_.Send(bytes, Deadline())); }
  TAnswer Receive();

  const TTarget& target_;
  const std::string& program_;
  const std::string key_;
  TConnection connection_;
};
}  // namespace

TAnswer TTransfer::Receive() {
  const TExchange exchange = connection_.ReceiveReply(Deadline());
  RequireDone(target_, exchange);
  return ReadAnswer(exchange.reply, key_);
}

TAnswer TTransfer::Request() {
  RequireDone(target_,
              connection_.Connect(target_.host, static_cast<uint16_t>(target_.port), Deadline()));
  Send(BuildRequest(target_.password, key_,
                    MakeRequestText("UpgradeCode", {std::to_string(program_.size())})));
  return Receive();
}

TAnswer TTransfer::SendProgram(milliseconds settle, const TUpgradeProgress& progress) {
  constexpr size_t kChunkBytes = 64 * 1024;
  const size_t most = program_.size() - 1;
  const std::string_view bytes = program_;
  for (size_t sent = 0; sent < most && !HasAnswer(connection_.Descriptor());) {
    const size_t size = std::min(kChunkBytes, most - sent);
    Send(bytes.substr(sent, size));
    sent += size;
    progress(sent, program_.size());
  }
  if (!WaitAcknowledged(connection_.Descriptor(), Deadline())) {
    throw TSilence("the agent's host stopped taking data", true);
  }
  std::this_thread::sleep_for(settle);
  Send(program_.substr(most) + Trailer(key_, program_));
  progress(program_.size(), program_.size());
  return Receive();
}

TAnswer Upgrade(const TTarget& target, const std::string& program,
                const TUpgradeProgress& progress) {
  if (program.size() < kUpgradeMinBytes || program.size() > kUpgradeMaxBytes) {
    throw TUsageFailure("an agent takes programs of " + std::to_string(kUpgradeMinBytes) + " to " +
                        std::to_string(kUpgradeMaxBytes) + " bytes, this one has " +
                        std::to_string(program.size()));
  }
  TAnswer answer;
  for (const milliseconds settle : {milliseconds(300), milliseconds(1000), milliseconds(3000)}) {
    TTransfer transfer(target, program);
    answer = transfer.Request();
    if (!answer.Done()) break;
    answer = transfer.SendProgram(settle, progress);
    if (answer.Text() != "Wrong CRC") break;
  }
  return answer;
}
