#include "checks/log/textlog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "checks/log/exprparser.h"
#include "fs/files.h"
#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

void Append(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

std::string Number(double n) {
  QovReply reply;
  reply.AddIntParam(n);
  return ToStd(reply);
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

class TextLog : public testing::Test {
 protected:
  /// One check with the state of the one before.
  std::vector<std::string> Check(const char* text, bool scanAll = false) {
    const TParams params{{1, log_},      {2, text},      {3, state_[0]},
                         {4, state_[1]}, {5, state_[2]}, {7, scanAll ? "1" : "0"},
                         {8, "1"}};
    const std::vector<std::string> reply = Lines(CallHandler(ProcessTest_TextLog, params));
    if (reply.size() == 8) state_.assign(reply.begin() + 4, reply.begin() + 7);
    return reply;
  }

  const TEnabledTests enabled_;
  const TTempDir dir_;
  const std::string log_ = dir_.Path("the log");
  std::vector<std::string> state_{"0", "0", "0"};
};

TEST_F(TextLog, FollowsALogThroughItsLife) {
  const std::string wide(3000, 'w');
  const struct {
    char action;  // append, replace, move away and write anew
    std::string bytes;
    bool scanAll;
    double match;
    std::string line;
    bool more;
    double position, size;
    double current = -1;  // -1: as size
  } steps[] = {
      {'a', "first ERR\n", false, 0, "", false, 9, 10},
      {'a', "", false, 0, "", false, 9, 10},
      // The line feed of a CR LF counts as part of the next line.
      {'a', "one ERR\r\nnone\ntwo ERR\n", false, 14, "one ERR", true, 18, 10, 32},
      {'a', "", false, 29, "two ERR", false, 32, 32},
      {'a', "part ERR", false, 0, "", false, 32, 40},
      {'a', "\nX\n\n", false, 38, "part ERR", false, 43, 44},
      {'a', "ERR a\nERR b\nz\n", true, 51, "ERR b", false, 58, 58},
      {'r', "ERR new\n", false, 1, "ERR new", false, 8, 8},
      {'m', "\rERR r\n", false, 1, "ERR r", false, 7, 7},
      {'a', wide + "ERR\n", true, 3008, wide.substr(0, 1024), false, 3011, 3011},
      {'r', "", false, 0, "", false, -1, 0},  // looking ahead found no baseline
      // Without a size this is a first check again.
      {'a', "ERR\n", false, 0, "", false, 3, 4},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(&step - steps);
    if (step.action == 'm') rename(log_.c_str(), (log_ + ".1").c_str());
    if (step.action == 'r') std::filesystem::resize_file(log_, 0);
    Append(log_, step.bytes);
    const std::string formerTime = state_[2];
    const auto reply = Check("ERR", step.scanAll);
    const std::string time = step.more ? formerTime + "\n" : Number(FileAge(log_.c_str()));
    EXPECT_EQ(Lines("200\n" + Number(step.match) + step.line + (step.more ? "\n1\n" : "\n0\n") +
                    Number(step.position) + Number(step.size) + time +
                    Number(step.current == -1 ? step.size : step.current)),
              reply);
  }
}

TEST_F(TextLog, AnswersErrors) {
  EXPECT_EQ(Lines("301\nFile does not exist"), Check("x"));
  Append(log_, "x\n");
  state_ = {"1", "1x", "0"};
  EXPECT_EQ(Lines("501\nWrong parameter"), Check("x"));
  state_ = {"-5", "1", "0"};
  EXPECT_EQ(Lines("301\nfseek error"), Check("x"));
  state_ = {std::string(400, '9'), "1", "0"};
  EXPECT_EQ("1", Check("x").at(1).substr(5));
  ExpectReplies(ProcessTest_TextLog2, {{{{1, "none"}, {2, "x"}}, "501\nWrong parameter"}});
  ASSERT_EQ(0, mkfifo(dir_.Path("pipe").c_str(), 0600));
  ExpectReplies(ProcessTest_TextLog, {{{{1, dir_.Path("pipe")}}, "301\nFile \"pipe\" not found"}});
}

/// Three attempts, a second after each.
TEST_F(TextLog, GivesUpOnAFileThatCannotBeOpened) {
  Append(log_, "x\n");
  chmod(log_.c_str(), 0);
  const std::string closed = geteuid() != 0 ? log_ : "/proc/sys/vm/compact_memory";
  if (access(closed.c_str(), F_OK) != 0) GTEST_SKIP() << "no such file for the superuser";
  EXPECT_EQ("301\nCannot open file", CallHandler(ProcessTest_TextLog, {{1, closed}}));
}

TEST_F(TextLog, SecondFilterMovesTheMacroFlag) {
  Append(log_, "x\none\ntwo\nboth: one two\n");
  const std::string macro = dir_.Path("%newestfile%");
  TParams params{{1, macro}, {2, "1"}, {3, "1"}, {4, "0"}, {6, "one"}, {8, "1"}, {16, "1"}};
  const auto tail = [&] {
    const auto reply = Lines(CallHandler(ProcessTest_TextLog2, params));
    return reply.size() == 10 ? reply[2] + "|" + reply[3] + "|" + reply[8] + "|" + reply[9] : "";
  };
  EXPECT_EQ("one|1|1|" + log_, tail());
  params.insert({{10, "1"}, {11, "'%0A' or 'TWO'"}, {12, "1"}});
  params[2] = "6";
  EXPECT_EQ("", tail());  // the flag is expected further on
  params[20] = "1";
  EXPECT_EQ("two|1|0|" + log_, tail());
  params[5] = "1";
  EXPECT_EQ("both: one two|0|1|" + log_, tail());
  params[2] = "24";
  EXPECT_EQ("|0|0|" + log_, tail());
}

struct TOutcome {
  double match = 0;
  std::string line;
  double position;
  int first = -1;
};

/// The scan line by line, as it is described.
TOutcome ScanSimply(const std::string& log, size_t from, const TTextLogFilter& filter1,
                    const TTextLogFilter* filter2, bool scanAll) {
  const auto test = [](const String& line, const TTextLogFilter& f) {
    return f.isExpression == 1 ? SearchForExpression(line, f.text, f.caseSensitive, f.wholeWord)
                               : line.Search(f.text, f.caseSensitive, f.wholeWord);
  };
  TOutcome outcome;
  size_t begin = from;  // of the line's bytes, the line ends before it included
  for (size_t p = from, end; (end = log.find_first_of("\r\n", p)) != std::string::npos;
       p = end + 1) {
    if (end == p) continue;
    const String line = ToString(log.substr(p, end - p));
    int value = test(line, filter1);
    const int first = value != 0;
    if (value == 0 && filter2 != nullptr) value = test(line, *filter2);
    const double bytesBegin = static_cast<double>(begin);
    begin = end + 1;
    if (value == 0) continue;
    outcome = {value + bytesBegin, ToStd(line.Copy(1, 1024)), 0, first};
    if (!scanAll) break;
  }
  outcome.position = static_cast<double>(begin);
  return outcome;
}

TEST_F(TextLog, ScansAsALineByLineModel) {
  std::minstd_rand random(5);
  const auto roll = [&random](size_t sides) { return random() % sides; };
  const auto pick = [&roll](const auto& list) { return list[roll(std::size(list))]; };
  const char* const texts[] = {"a", "B1", "1a", "aaaaaaaaa", "b a", "", "\n", "b\r1", "#n#"};
  const char* const expressions[] = {"'a'",           "not 'a'",         "'B' and not 'a' or '1'",
                                     "'#n#' or 'aB'", "not 'x' and '1'", "'a",
                                     "('a'",          "'#n#' and '\n'",  ""};
  const auto filter = [&] {
    const bool expression = roll(2) == 0;
    return TTextLogFilter{expression ? pick(expressions) : pick(texts), expression,
                          static_cast<int>(roll(2)), static_cast<int>(roll(2))};
  };
  int matches = 0;
  for (int round = 0; round < 45; ++round) {
    const bool large = round % 9 == 0;  // several buffers
    const size_t width = pick(std::vector<size_t>{3, 30, 300, 90000});
    std::string log;
    const size_t size = large ? 600'000 : roll(600);
    while (log.size() < size) {
      if (roll(large ? 20'000 : 20) == 0) log += "#n#";
      for (size_t n = roll(width + 1); n > 0; --n) log += "aAbB1 ~"[roll(7)];
      log += pick(std::vector<const char*>{"\n", "\r\n", "\r", "\n\n\n"});
    }
    log.resize(size);
    const std::string path = dir_.File(std::to_string(round), log);
    for (int scan = 0; scan < (large ? 6 : 40); ++scan) {
      const TTextLogFilter filter1 = filter(), filter2 = filter();
      const bool useBoth = roll(2) == 0, scanAll = roll(2) == 0;
      const size_t from = roll(size + 1);
      const TOutcome expected =
          ScanSimply(log, from, filter1, useBoth ? &filter2 : nullptr, scanAll);
      double position = static_cast<double>(from), sizeBytes = 1, time = 0, current;
      int first = -1;
      String line, error;
      SCOPED_TRACE(ToStd(filter1.text) + " | " + ToStd(filter2.text) + " in " + path);
      ASSERT_EQ(expected.match,
                CheckFileForExpression2(path.c_str(), position, sizeBytes, time, filter1, filter2,
                                        useBoth, scanAll, first, line, error, current));
      ASSERT_EQ(expected.line, ToStd(line));
      ASSERT_EQ(expected.position, position);
      ASSERT_EQ(expected.first, first);
      const bool complete = expected.match == 0 || scanAll;
      ASSERT_EQ(complete ? static_cast<double>(size) : 1, sizeBytes);
      matches += expected.match != 0;
    }
  }
  EXPECT_GT(matches, 300);
}

/// Every line that another thread appends, piece by piece, is reported once and in order.
TEST_F(TextLog, LosesNoLineWhileTheLogGrows) {
  constexpr int kLines = 400;
  Append(log_, "start\n");
  Check("match");
  std::thread writer([this] {
    std::ofstream log(log_, std::ios::binary | std::ios::app);
    for (int i = 0; i < kLines; ++i) {
      log << "no\nmat" << std::flush << "ch " << i << std::flush << "\r\nno\n" << std::flush;
    }
  });
  int seen = 0;
  for (int checks = 0; seen < kLines && checks < 200'000; ++checks) {
    const auto reply = Check("match");
    if (reply.size() != 8 || reply[2].empty()) continue;
    ASSERT_EQ("match " + std::to_string(seen), reply[2]);
    ++seen;
  }
  writer.join();
  EXPECT_EQ(kLines, seen);
}

}  // namespace
