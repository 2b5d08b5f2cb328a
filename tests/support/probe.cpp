#include "support/probe.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "support/rawpeer.h"

int Repeats(int brief, int full) { return getenv("QOV_STRESS") != nullptr ? full : brief; }

bool AnswersInTime(const TAgentProcess& agent, const std::string& command,
                   const std::vector<std::string>& params) {
  const long long start = NowMs();
  const TReply reply = agent.Ask(command, params);
  const long long tookMs = NowMs() - start;
  EXPECT_EQ("200", reply.code) << command << ": " << reply.text;
  EXPECT_GE(kAnswerLimitMs, tookMs) << command;
  return reply.code == "200" && tookMs <= kAnswerLimitMs;
}

TProbe::TProbe(const TAgentProcess& agent, const std::string& command,
               const std::vector<std::string>& params)
    : thread_([this, &agent, command, params] {
        while (!stop_ && AnswersInTime(agent, command, params)) ++answered_;
      }) {}

int TProbe::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  return answered_;
}
