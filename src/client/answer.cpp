#include "client/answer.h"

#include "client/vxwire.h"

const std::string& TAnswer::Line(size_t n) const {
  static const std::string none;
  return n >= 1 && n <= lines.size() ? lines[n - 1] : none;
}

std::string TAnswer::Text() const {
  std::string text;
  for (const std::string& line : lines) {
    if (!text.empty()) text += '\n';
    text += line;
  }
  return text;
}

std::string MakeRequestText(const std::string& command, const std::vector<std::string>& params) {
  std::string text = command + '\n';
  for (const std::string& param : params) text += param + '\n';
  return text + '\r';
}

TAnswer ReadAnswer(std::string_view packet, std::string_view sessionKey) {
  TReply reply = DecodeReply(packet, sessionKey);
  if (reply.state != TReplyState::complete) {
    throw TSilence("the reply cannot be read: it is no text under this session key");
  }
  TAnswer answer;
  answer.code = std::move(reply.code);
  answer.lines = std::move(reply.values);
  return answer;
}

void RequireDone(const TTarget& target, const TExchange& exchange) {
  if (exchange.Ok()) return;
  const std::string peer = target.host + " port " + std::to_string(target.port) + ": ";
  const bool timedOut = exchange.result == TExchangeResult::connectTimeout ||
                        exchange.result == TExchangeResult::replyTimeout;
  if (exchange.result == TExchangeResult::closedSilently) {
    throw TSilence(peer + "no reply: wrong password, address filter, or damaged packet");
  }
  throw TSilence(peer + exchange.error, timedOut);
}

std::string NewSessionKey() {
  std::string key = MakeSessionKey();
  if (key.empty()) throw TSilence("the kernel gives no random numbers for a session key");
  return key;
}

TAnswer Ask(const TTarget& target, const std::string& command,
            const std::vector<std::string>& params) {
  const std::string key = NewSessionKey();
  const std::string packet = BuildRequest(target.password, key, MakeRequestText(command, params));
  const auto start = std::chrono::steady_clock::now();
  const TExchange exchange =
      Exchange(target.host, static_cast<uint16_t>(target.port), target.timeoutMs, packet);
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - start;
  RequireDone(target, exchange);
  TAnswer answer = ReadAnswer(exchange.reply, key);
  answer.elapsedMs = elapsed.count();
  return answer;
}

namespace {
struct TCodeRow {
  const char* code;
  TExitStatus status;
  const char* meaning;
};
constexpr TCodeRow kCodes[] = {
    {"200", kExitDone, "done"},
    {"300", kExitFailed, "failed"},
    {"301", kExitCannot, "could not be performed"},
    {"302", kExitBusy, "another session is upgrading the agent"},
    {"500", kExitUnknown, "unknown command, or not applicable here"},
    {"501", kExitUnknown, "wrong parameters"},
    {"502", kExitUnknown, "incomplete request"},
    {"600", kExitRefused, "refused by the agent's settings"},
};
}  // namespace

static const TCodeRow* FindCode(const std::string& code) {
  for (const TCodeRow& row : kCodes) {
    if (code == row.code) return &row;
  }
  return nullptr;
}

const char* CodeMeaning(const std::string& code) {
  const TCodeRow* row = FindCode(code);
  return row != nullptr ? row->meaning : "unknown result code";
}

TExitStatus CodeExitStatus(const std::string& code) {
  const TCodeRow* row = FindCode(code);
  return row != nullptr ? row->status : kExitUnknown;
}
