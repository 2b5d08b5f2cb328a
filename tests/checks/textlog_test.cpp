#include "checks/log/textlog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>

#include "checks/log/exprparser.h"
#include "fs/files.h"
#include "support/handlercall.h"
#include "support/scopes.h"

static thread_local int pauses = -1;  // counted from 0 on, and not made
static rlimit descriptors;

/// The pause between attempts. From the second one that is counted on files can be opened again.
extern "C" int nanosleep(const timespec* wanted, timespec* left) {
  if (pauses < 0) return static_cast<int>(syscall(SYS_nanosleep, wanted, left));
  if (++pauses == 2) setrlimit(RLIMIT_NOFILE, &descriptors);
  return 0;
}

namespace {

class TextLog : public testing::Test {
 protected:
  /// The reply, with one blank for each run of blanks and line ends.
  static std::string Call(THandler handler, const TParams& params) {
    std::istringstream words(CallHandler(handler, params));
    std::string reply;
    for (std::string word; words >> word;) reply += (reply.empty() ? "" : " ") + word;
    return reply;
  }

  const TEnabledTests enabled_;
  const TTempDir dir_;
  const std::string log_ = dir_.Path("the log\xE9");
};

TEST_F(TextLog, FollowsALogThroughItsLife) {
  const std::string wide(3000, 'w'), head = wide.substr(0, 1024);
  const struct {
    char action;  // append, empty first, move away and write anew
    std::string bytes;
    const char* scanAll;
    std::string reply;  // T: the time of this step, S: the time sent
  } steps[] = {
      {'a', "first ERR\n", "0", "0 0 9 10 T 10"},
      {' ', "", "0", "0 0 9 10 S 10"},
      // The line feed of a CR LF counts as part of the next line.
      {'a', "one ERR\r\nnone\ntwo ERR\n", "0", "14 one ERR 1 18 10 S 32"},
      {' ', "", "0", "29 two ERR 0 32 32 T 32"},
      {'a', "part ERR", "0", "0 0 32 40 T 40"},
      {'a', "\nX\n\n", "0", "38 part ERR 0 43 44 T 44"},
      {'a', "ERR a\nERR b\nz\n", "1", "51 ERR b 0 58 58 T 58"},
      {'e', "ERR new\n", "0", "1 ERR new 0 8 8 T 8"},
      {'m', "\rERR r\n", "0", "1 ERR r 0 7 7 T 7"},
      {'a', wide + "ERR\n", "1", "3008 " + head + " 0 3011 3011 T 3011"},
      // A line that no buffer holds counts once it has an end; what follows it is not lost.
      {'a', '\n' + std::string(700'000, 'w') + "ERR", "0", "0 0 3011 703015 T 703015"},
      {'a', "\r\nERR 2\nx\n", "0", "703012 " + head + " 1 703016 703015 S 703025"},
      {' ', "", "0", "703017 ERR 2 0 703025 703025 T 703025"},
      {'e', "", "0", "0 0 -1 0 T 0"},  // looking ahead found no baseline
      {'a', "ERR\n", "0", "0 0 3 4 T 4"},
  };
  std::vector<std::string> words(4, "0");  // position, size, time and current size at the end
  for (const auto& step : steps) {
    const auto number = &step - steps;
    if (step.action == 'm') rename(log_.c_str(), (log_ + ".1").c_str());
    if (step.action == 'e') truncate(log_.c_str(), 0);
    std::ofstream(log_, std::ios::app) << step.bytes;
    const timespec times[2] = {{number + 1, 0}, {number + 1, 0}};
    if (step.action != ' ') utimensat(AT_FDCWD, log_.c_str(), times, 0);
    const auto state = words.end() - 4;
    std::string reply = step.reply;
    const size_t mark = reply.find_last_of("TS");
    reply.replace(mark, 1, reply[mark] == 'S' ? state[2] : std::to_string(FileAge(log_.c_str())));
    EXPECT_EQ("200 " + reply, Call(ProcessTest_TextLog, {{1, log_},
                                                         {2, "ERR"},
                                                         {3, state[0]},
                                                         {4, state[1]},
                                                         {5, state[2]},
                                                         {7, step.scanAll}}))
        << number;
    std::istringstream stream(reply);
    words.assign(std::istream_iterator<std::string>(stream), {});
  }
}

TEST_F(TextLog, TakesEachOptionFromItsPlace) {
  std::ofstream(log_) << "#\nERRx\nan err\n'ERR'\n'or' ERR \n";
  const struct {
    const char *text, *options, *reply;  // expression, scan all, case, whole word
  } cases[] = {{"err", "0000", "200 2 ERRx"},     {"err", "0010", "200 11 an err"},
               {"err", "0001", "200 11 an err"},  {"ERR", "0011", "200 16 'ERR'"},
               {"'ERR'", "0000", "200 15 'ERR'"}, {"'ERR'", "1000", "200 2 ERRx"},
               {"err", "0100", "200 26 'or'"},    {"R ", "0000", "200 28 'or'"},
               {"R\r", "0010", "200 3 ERRx"},     {"'%0A", "0000", "200 0 0 30 30"}};
  for (const auto& [text, o, reply] : cases) {
    const std::string on[] = {{o[0]}, {o[1]}, {o[2]}, {o[3]}};
    TParams forms[] = {
        {{2, text}, {3, "1"}, {4, "1"}, {6, on[0]}, {7, on[1]}, {8, on[2]}, {9, on[3]}},
        {{2, "1"}, {3, "1"}, {5, on[1]}, {6, text}, {7, on[0]}, {8, on[2]}, {9, on[3]}},
        {{2, "1"}, {3, "1"}, {5, on[1]}, {6, "?"}, {10, "1"}, {11, text}, {12, on[0]}}};
    forms[2].insert({{13, on[2]}, {14, on[3]}});
    for (TParams& params : forms) {
      params[1] = " " + log_ + "\t";
      const bool two = params.contains(5);
      const std::string got = Call(two ? ProcessTest_TextLog2 : ProcessTest_TextLog, params);
      EXPECT_TRUE(got.starts_with(reply)) << got << testing::PrintToString(params);
    }
  }
}

TEST_F(TextLog, SecondFilterMovesTheMacroFlag) {
  std::ofstream(log_) << "x\none\ntwo\nboth: one two\n";
  TParams params{{1, dir_.Path("%newestfile%")}, {2, "1"},  {3, "1"}, {6, "one"},
                 {11, "'%0A' or 'TWO'"},         {12, "1"}, {16, "1"}};
  const auto expect = [&](const std::string& reply,
                          std::initializer_list<std::pair<int, const char*>> changes) {
    for (const auto& [n, value] : changes) params[n] = value;
    EXPECT_EQ(reply, Call(ProcessTest_TextLog2, params));
  };
  const std::string time = ' ' + std::to_string(FileAge(log_.c_str()));
  expect("200 2 one 1 6 1 0 24 1 " + log_, {});
  expect("301 File does not exist", {{10, "1"}});  // the flag is expected further on
  expect("200 7 two 1 10 1 0 24 0 " + log_, {{2, "6"}, {20, "1"}});
  expect("200 17 both: one two 0 24 24" + time + " 24 1 " + log_, {{5, "1"}});
  expect("200 0 0 24 24" + time + " 24 0 " + log_, {{2, "24"}});
}

TEST_F(TextLog, AnswersErrors) {
  std::ofstream(log_) << "\n\nx\n";
  ASSERT_EQ(0, mkfifo(dir_.Path("pipe").c_str(), 0600));
  ExpectReplies(ProcessTest_TextLog, {{{{1, "none"}, {3, "x"}}, "301\nFile does not exist"},
                                      {{{1, dir_.Path("pipe")}}, "301\nFile \"pipe\" not found"},
                                      {{{1, log_}, {3, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {4, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {5, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {3, "-5"}, {4, "1"}}, "301\nfseek error"}});
  ExpectReplies(ProcessTest_TextLog2, {{{{1, "none"}, {2, "x"}}, "501\nWrong parameter"}});
  EXPECT_EQ("200 1 x 0",
            Call(ProcessTest_TextLog, {{1, log_}, {2, "x"}, {3, std::string(400, '9')}, {4, "1"}})
                .substr(0, 9));
  // A file that says it is longer than what can be read of it.
  const char* const brief = "/sys/devices/system/cpu/online";
  const std::string reply = Call(ProcessTest_TextLog, {{1, brief}, {2, "x"}, {4, "1"}});
  EXPECT_TRUE(FileSize(brief) != 4096 || reply.ends_with(" 1 0 4096")) << reply;

  // Without descriptors, which come back before the third attempt, or never.
  getrlimit(RLIMIT_NOFILE, &descriptors);
  const rlimit none{0, descriptors.rlim_max};
  for (const bool inTime : {true, false}) {
    pauses = inTime ? 0 : 2;
    double position = 1, size = 1, time = 0, current;
    String line, error;
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(inTime ? 2 : -1, CheckFileForExpression(log_.c_str(), "'x'", position, size, time, 1,
                                                      0, 1, 1, line, error, current));
    setrlimit(RLIMIT_NOFILE, &descriptors);
    EXPECT_EQ(inTime ? "" : "Cannot open file", error);
    EXPECT_EQ(inTime ? 2 : 5, pauses);
  }
  pauses = -1;
}

std::string Outcome(double match, const String& line, double position, int first) {
  return std::to_string(match) + '|' + ToStd(line) + '|' + std::to_string(position) + '|' +
         std::to_string(first);
}

/// The scan line by line, as it is described.
std::string ScanSimply(const std::string& log, size_t from, const TTextLogFilter* filters,
                       bool both, bool scanAll) {
  double match = 0;
  String found;
  int first = -1;
  size_t begin = from;  // of the line's bytes, the line ends before it included
  for (size_t p = from, end; (end = log.find_first_of("\r\n", p)) != std::string::npos;
       p = end + 1) {
    if (end == p) continue;
    const String line = ToString(log.substr(p, end - p));
    const auto test = [&line](const TTextLogFilter& f) {
      return f.isExpression == 1 ? SearchForExpression(line, f.text, f.caseSensitive, f.wholeWord)
                                 : line.Search(f.text, f.caseSensitive, f.wholeWord);
    };
    const int byFirst = test(filters[0]);
    const int value = byFirst != 0 || !both ? byFirst : test(filters[1]);
    if (value != 0) {
      match = value + static_cast<double>(begin);
      found = line.Copy(1, 1024);
      first = byFirst != 0;
    }
    begin = end + 1;
    if (value != 0 && !scanAll) break;
  }
  return Outcome(match, found, static_cast<double>(begin), first);
}

TEST_F(TextLog, ScansAsALineByLineModel) {
  std::minstd_rand random(5);
  const auto roll = [&random](size_t sides) { return random() % sides; };
  const auto pick = [&roll](const auto& list) { return list[roll(std::size(list))]; };
  // A "?" before an expression.
  const char* const kinds[] = {"a",
                               "B1",
                               "1a",
                               "aaaaaaaaa",
                               "b a",
                               "",
                               "\n",
                               "b\r1",
                               "#n#",
                               "?'a'",
                               "?not 'a'",
                               "?'B' and not 'a' or '1'",
                               "?'#n#' or 'aB'",
                               "?not 'x' and '1'",
                               "?'a",
                               "?('a'",
                               "?'#n#' and '\n'",
                               "?"};
  const char* const ends[] = {"\n", "\r\n", "\r", "\n\n\n", "#n#"};
  int matches = 0;
  const auto compare = [&](const std::string& log, size_t from, const TTextLogFilter* filters,
                           bool both, bool scanAll) {
    double position = static_cast<double>(from), sizeBytes = 1, time = 0, current;
    int first = -1;
    String line, error;
    const double match =
        CheckFileForExpression2(log_.c_str(), position, sizeBytes, time, filters[0], filters[1],
                                both, scanAll, first, line, error, current);
    matches += match != 0;
    ASSERT_EQ(match == 0 || scanAll ? FileAge(log_.c_str()) : 0, time);
    ASSERT_EQ(ScanSimply(log, from, filters, both, scanAll), Outcome(match, line, position, first))
        << ToStd(filters[0].text) << " | " << ToStd(filters[1].text) << " from " << from;
  };
  for (size_t shift = 0; shift < 9; ++shift) {  // one long line, words at the edges of its blocks
    std::string log(5 * kReadBytes, '~');
    size_t edge = 2 * kReadBytes + 2 - shift;
    for (const char* word : {"1cats", "cats1", "cats"}) {
      log.replace(edge, strlen(word), word);
      edge += kReadBytes;
    }
    log.back() = '\n';
    dir_.File("the log\xE9", log);
    const TTextLogFilter words[] = {{"cats", 0, 1, 1}, {"1c", 0, 1, 1}};
    compare(log, 0, words, shift % 2 == 0, false);
  }
  for (int round = 0; round < 20; ++round) {
    const bool large = round % 5 == 0;  // several blocks
    const size_t size = large ? 1'100'000 : roll(600);
    const size_t width = large ? size_t{300} << 5 * roll(3) : 1 + roll(300);
    std::string log;
    while (log.size() < size) {
      log += std::string(roll(width), '~');
      for (size_t n = roll(9); n > 0; --n) log += "aAbB1 ~#"[roll(8)];
      log += pick(ends);
    }
    log.resize(size);
    dir_.File("the log\xE9", log);
    for (int scan = 0; scan < 12; ++scan) {
      TTextLogFilter filters[2];
      for (TTextLogFilter& f : filters) {
        const char* text = pick(kinds);
        f = {text + (*text == '?'), *text == '?', roll(2) == 0, roll(2) == 0};
      }
      const bool both = roll(2) == 0, scanAll = roll(2) == 0;
      compare(log, large ? roll(1000) : roll(size + 1), filters, both, scanAll);
    }
  }
  EXPECT_GT(matches, 60);
}

/// In a process of its own, whose peak grows by what the check takes beside the request.
TEST_F(TextLog, TakesLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take memory of their own";
#endif
  // An expression (a part of it, and its end), and how long the log is: one line without an end.
  const struct {
    std::string part;
    const char* last;
    off_t logBytes;
  } cases[] = {
      {"'a'or", "'b'", 9}, {"1or", "1", 9}, {"(", "", 9}, {"'q", "'", 9}, {"", "'q'", 20'000'000}};
  for (const auto& [part, last, logBytes] : cases) {
    truncate(dir_.File("log").c_str(), logBytes);
    std::string text = dir_.Path("log") + '\n';
    while (!part.empty() && text.size() < 1'000'000) text += part;
    VxRequest request;
    request = ToString(text + last + "\n1\n1\n0\n1\n");
    const pid_t child = fork();
    if (child == 0) {
      rusage before, after;
      getrusage(RUSAGE_SELF, &before);
      QovReply reply;
      ProcessTest_TextLog(request, reply);
      getrusage(RUSAGE_SELF, &after);
      const long grownMiB = (after.ru_maxrss - before.ru_maxrss) / 1024;
      _exit(reply.Pos("200") == 1 ? static_cast<int>(std::min(grownMiB, 254L)) : 255);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_LT(WEXITSTATUS(status), 12) << "MiB for " << part << last;
  }
}

}  // namespace
