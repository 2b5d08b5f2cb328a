#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utime.h>

#include <fstream>
#include <random>

#include "checks/log/exprparser.h"
#include "checks/log/textlog.h"
#include "fs/files.h"
#include "support/handlercall.h"
#include "support/scopes.h"

static thread_local int pauses = -1;  // counted from 0 on, and not made

extern "C" int nanosleep(const timespec* wanted, timespec* left) {
  if (pauses < 0) return static_cast<int>(syscall(SYS_nanosleep, wanted, left));
  return ++pauses, 0;
}

namespace {

constexpr THandler kOne = ProcessTest_TextLog, kTwo = ProcessTest_TextLog2;

TEST(Expressions, BecomePostfixAndHoldForALine) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"'a' or 'b' and not('x' and'b')and \"c d\"", "'a' 'b' or 'x' 'b' and \"c d\" and not and ",
       1},
      {"'a' AND (Not 'b') or 'c'", "'a' 'b' not and 'c' or ", 0},
      {"987-6543210 or '\"'", "987-6543210 '\"' or ", 0},
      {"'a' or (", "'a' ( or ", 1},
      {" \t'it''s' \xE9", "'it' 's' ", 0},
      {"'a' )", "Missing \"(\"", 0},
      {"'a ", "Unterminated string: 'a", 0},
      // A word that is unknown ends where an operator is found, or at a blank.
      {"error", "Unknown operator: \"err\"", 0},
      {"'a' oR\t'b'", "Unknown operator: \"oR\t'b'\"", 0},
      {"", "", 0},
      {"not", "not ", 0},
      {"not ''", "'' not ", 1},
      {"'a' and", "'a' and ", 0},
      {"'a' 'a'", "'a' 'a' ", 0},
      {"123", "123 ", 0},
      {"113", "113 ", 1}};
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  for (const auto& [expression, postfix, holds] : cases) {
    EXPECT_EQ(holds, SearchForExpression("a 1\n3\nb", expression, 1, 0)) << expression;
    String source(expression);
    std::string tokens;
    const bool done = parser.Expr2Polish(source, 0) != 0;
    for (int i = 0; i < parser.Output().Count(); ++i) tokens += ToStd(parser.Output()[i]) + ' ';
    EXPECT_EQ(postfix, done ? tokens : ToStd(parser.Error())) << expression;
    EXPECT_EQ(done, parser.Error().Empty() && source.Empty());
  }
  TExprParser wide(PriorityTable2, sizeof PriorityTable2);
  EXPECT_TRUE(wide.TokenInPos("1<=2", 2) == 6 && wide.TokenInPos("1<=2", 4) == -1);
  EXPECT_TRUE(wide.TokenInPriority("MOD") == 4 && wide.TokenInPriority("mo") == -1);
  EXPECT_EQ(65520, wide.TokenSPriority(")"));
  String rest(" 7div 2");
  for (const char* token : {"7", "div"}) EXPECT_EQ(token, wide.GetToken(rest));
  EXPECT_TRUE(rest == " 2" && wide.Expr2Polish(rest, 1) == 1 && wide.Output().Count() == 0);
}

class TextLog : public testing::Test {
 protected:
  /// The reply's words, which are also kept, with a blank between them.
  std::string Call(THandler handler, const std::string& params) {
    std::istringstream stream(CallHandler(handler, Params(params)));
    std::string reply, word;
    for (words_.clear(); stream >> word; words_.push_back(word)) reply += word + ' ';
    return reply;
  }

  std::vector<std::string> words_{"0", "0", "0", "0"};
  const TEnabledTests enabled_;
  const TTempDir dir_;
  const std::string log_ = dir_.Path("the log\xE9"), mask_ = dir_.Path("%newestfile%");
};

TEST_F(TextLog, FollowsALogThroughItsLife) {
  const std::string wide(3000, 'w'), head = wide.substr(0, 1024);
  const auto add = std::ios::app, anew = std::ios::trunc;
  const std::tuple<std::ios::openmode, std::string, char, std::string> steps[] = {
      {add, "first ERR\n", '0', "0 0 9 10 1 10 "},
      // The line feed of a CR LF counts as part of the next line.
      {add, "one ERR\r\nnone\ntwo ERR\n", '0', "14 one ERR 1 18 10 1 32 "},
      {add, "", '0', "29 two ERR 0 32 32 3 32 "},
      {add, "part ERR", '0', "0 0 32 40 4 40 "},
      {add, "\nX\n\n", '0', "38 part ERR 0 43 44 5 44 "},
      {anew, "\rERR r\n", '0', "1 ERR r 0 7 7 6 7 "},
      {add, wide + "ERR\n", '1', "3008 " + head + " 0 3011 3011 7 3011 "},
      // A line that no buffer holds counts once it has an end; what follows it is not lost.
      {add, '\n' + std::string(700'000, 'w') + "ERR", '0', "0 0 3011 703015 8 703015 "},
      {add, "\r\nERR 2\nx\n", '1', "703017 ERR 2 0 703025 703025 9 703025 "},
      {anew, "", '0', "0 0 -1 0 10 0 "},  // looking ahead found no baseline
      {add, "ERR\n", '0', "0 0 3 4 11 4 "},
  };
  time_t time = 0;
  for (const auto& [mode, bytes, all, reply] : steps) {
    std::ofstream(log_, mode) << bytes;
    const utimbuf times{++time, time};
    utime(log_.c_str(), &times);
    std::string request = log_ + ",ERR,";
    for (size_t i = words_.size() - 4; i < words_.size() - 1; ++i) request += words_[i] + ',';
    EXPECT_EQ("200 " + reply, Call(kOne, request + "7=" + all));  // position, size and time
  }
}

TEST_F(TextLog, TakesEachOptionFromItsPlace) {
  std::ofstream(log_) << "#\nERRx\nan err\n'ERR'\n'or' ERR \n";
  const std::array<const char*, 4> cases[] = {
      // text, options of either check
      {"err", "", "", "200 2 ERRx"},           {"err", "8=1", "13=1", "200 11 an err"},
      {"err", "9=1", "14=1", "200 11 an err"}, {"'ERR'", "", "", "200 15 'ERR'"},
      {"'ERR'", "6=1", "12=1", "200 2 ERRx"},  {"err", "7=1", "5=1", "200 26 'or'"},
      {"R ", "", "", "200 28 'or'"},           {"R\r", "", "", "200 3 ERRx"},
      {"'%0A", "", "", "200 0 0 30 30"}};
  for (const auto& [text, one, two, reply] : cases) {
    const std::string byOne = Call(kOne, ' ' + log_ + ',' + text + ",1,1," + one);
    EXPECT_TRUE(byOne.starts_with(reply)) << byOne << " for " << text;
    const std::string second = std::string(",1,1,6=?,10=1,20=1,11=") + text + ',' + two;
    EXPECT_EQ(byOne + "0 " + log_ + ' ', Call(kTwo, mask_ + second));
  }
}

TEST_F(TextLog, AnswersErrors) {
  const std::string log = dir_.File("x", "\n\nx\ny\nx\ny\n"), mask = mask_, huge(400, '9');
  const std::string missing = "301 File does not exist ", wrong = "501 Wrong parameter ";
  const std::tuple<THandler, std::string, std::string> cases[] = {
      {kOne, "none,3=x", missing},
      {kOne, "/dev/null", "301 File \"null\" not found "},
      {kOne, log + ",3=1x", wrong},
      {kOne, log + ",4=1x", wrong},
      {kOne, log + ",5=1x", wrong},
      {kOne, log + ",3=-5,4=1", "301 fseek error "},
      {kOne, log + ",x," + huge + ",1", "200 1 x 1 4 1 0 10 "},
      {kTwo, "none,x", wrong},
      {kTwo, mask + ",10=1,16=1", missing},
      {kTwo, mask + ",1,1,6=y,11=x,16=1", "200 5 y 1 6 1 0 10 1 " + log + ' '},
      // The match that waits is another filter's.
      {kTwo, mask + ",1,1,6=y,10=1,11=x,20=1", "200 2 x 1 4 1 0 10 0 " + log + ' '}};
  for (const auto& [handler, params, reply] : cases) EXPECT_EQ(reply, Call(handler, params));
  // A file that says it is longer than what can be read of it.
  const char* const brief = "/sys/devices/system/cpu/online";
  Call(kOne, std::string(brief) + ",x,4=1");
  EXPECT_TRUE(FileSize(brief) != 4096 || words_[words_.size() - 2] == "0");

  double position = 1, size = 1, time = 0, current;
  String line, error;
  EXPECT_EQ(2, CheckFileForExpression(log.c_str(), "'x'", position, size, time, 1, 0, 1, 1, line,
                                      error, current));
  EXPECT_EQ(0, chmod(log.c_str(), 0) + chmod(dir_.Path().c_str(), 0755));
  setfsuid(65534);
  pauses = 0;
  EXPECT_EQ("301 Cannot open file ", Call(kOne, log + ",x,1,1"));
  setfsuid(geteuid());
  EXPECT_EQ(3, std::exchange(pauses, -1));
}

using TFilters = std::vector<TTextLogFilter>;  // one or two
/// Of a scan: the match, its line, the next position, whether the first filter matched.
using TOutcome = std::tuple<double, std::string, double, int>;

/// The scan line by line, as it is described.
TOutcome ScanSimply(const std::string& log, size_t from, const TFilters& filters, bool scanAll) {
  TOutcome outcome(0, "", from, -1);
  auto& [match, found, begin, first] = outcome;  // of the line's bytes, the line ends before it too
  for (size_t p = from, end; scanAll || match == 0; p = end + 1) {
    if ((end = log.find_first_of("\r\n", p)) == log.npos) break;
    if (end == p) continue;
    const String line = ToString(log.substr(p, end - p));
    for (size_t i = filters.size(); i-- > 0;) {  // the first one is preferred
      const auto& [text, isExpression, exact, word] = filters[i];
      const int value = isExpression == 1 ? SearchForExpression(line, text, exact, word)
                                          : line.Search(text, exact, word);
      if (value != 0) outcome = {value + begin, ToStd(line.Copy(1, 1024)), begin, i == 0};
    }
    begin = static_cast<double>(end + 1);
  }
  return outcome;
}

TEST_F(TextLog, ScansAsALineByLineModel) {
  const auto compare = [&](const std::string& log, size_t from, const TFilters& f, bool scanAll) {
    dir_.File("the log\xE9", log);
    double position = static_cast<double>(from), size = 1, time = 0, current;
    int first = -1;
    String line, error;
    const double match =
        CheckFileForExpression2(log_.c_str(), position, size, time, f.front(), f.back(),
                                f.size() == 2, scanAll, first, line, error, current);
    ASSERT_EQ(ScanSimply(log, from, f, scanAll), TOutcome(match, ToStd(line), position, first));
  };
  for (size_t shift = 0; shift < 9; ++shift) {  // one long line, words at the edges of its blocks
    std::string log = std::string(5 * kReadBytes, '~') + '\n';
    size_t edge = kReadBytes + 2 - shift;
    for (const char* word : {"1cats", "cats1", "cats~"}) log.replace(edge += kReadBytes, 5, word);
    compare(log, 0, {{"cats", 0, 1, 1}, {"1c", 0, 1, 1}}, false);
  }
  std::minstd_rand random(5);
  const auto roll = [&random](size_t sides) { return random() % sides; };
  const char* const words[] = {"a", "A",  "B1", "1",    "b a",   "#n#",
                               "~", "\n", "\r", "\r\n", "\n\n\n"};
  const char* const texts[] = {"a",    "1a",   "b a",           "",        "\n",
                               "b\r1", "#n#",  "'a'",           "not 'a'", "'B' and not 'a' or '1'",
                               "'a",   "('a'", "'#n#' and '\n'"};
  for (int round = 0; round < 500; ++round) {
    const size_t size = round % 250 == 0 ? 1'100'000 : roll(600);  // large: several blocks
    const size_t width = size > 600 ? size_t{300} << 5 * roll(3) : 1 + roll(300);
    std::string log;
    while (log.size() < size) {
      log += roll(12) == 0 ? std::string(roll(width), '~') : words[roll(std::size(words))];
    }
    log.resize(size);
    TFilters filters(1 + roll(2));
    for (TTextLogFilter& f : filters) {
      const size_t i = roll(std::size(texts));
      f = {texts[i], i > 6, roll(2) == 0, roll(2) == 0};
    }
    compare(log, roll(std::min<size_t>(size, 999) + 1), filters, roll(2) == 0);
  }
}

/// In a process of its own, whose peak grows by what the request and its check take.
TEST_F(TextLog, TakesLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take memory of their own";
#endif
  const auto check = [](const std::string& params) {
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    const bool done = CallHandler(kOne, Params(params)).starts_with("200");
    getrusage(RUSAGE_SELF, &after);
    _exit(!done || after.ru_maxrss - before.ru_maxrss > 10 * 1024);
  };
  // A part of an expression, and its end; without a part the log is one long line.
  const std::pair<const char*, const char*> cases[] = {
      {"'a'or", "'b'"}, {"1or", "1"}, {"(", ""}, {"'q", "'"}, {"", "'q'"}};
  for (const auto& [part, last] : cases) {
    truncate(dir_.File("log").c_str(), *part == 0 ? 30'000'000 : 9);
    std::string text;
    while (*part != 0 && text.size() < 400'000) text += part;
    const std::string params = dir_.Path("log,") + text + last + ",1,1,6=1";
    EXPECT_EXIT(check(params), testing::ExitedWithCode(0), "") << part << last;
  }
}

}  // namespace
