#include "checks/log/textlog.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utime.h>

#include <fstream>
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

TEST(Expressions, BecomePostfix) {
  // A word that is unknown ends where an operator is found, or at a blank.
  const std::pair<const char*, const char*> cases[] = {
      {"'a' and('b'or\"c d\")", "'a' 'b' \"c d\" or and "},
      {"'a' AND (Not 'b') or 'c'", "'a' 'b' not and 'c' or "},
      {"987-6543210 or '\"'", "987-6543210 '\"' or "},
      {"( 'a'", "'a' ( "},
      {" \t'it''s' \xE9", "'it' 's' "},
      {"'a' )", "Missing \"(\""},
      {"'warn ", "Unterminated string: 'warn"},
      {"error", "Unknown operator: \"err\""},
      {"'a' oR\t'b'", "Unknown operator: \"oR\t'b'\""}};
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  for (const auto& [expression, postfix] : cases) {
    String source(expression);
    const bool done = parser.Expr2Polish(source, 0) != 0;
    std::string tokens;
    for (int i = 0; i < parser.Output().Count(); ++i) tokens += ToStd(parser.Output()[i]) + ' ';
    EXPECT_EQ(postfix, done ? tokens : ToStd(parser.Error())) << expression;
    EXPECT_EQ(done, parser.Error().Empty() && source.Empty());
  }

  TExprParser wide(PriorityTable2, sizeof PriorityTable2);
  EXPECT_EQ(6, wide.TokenInPos("1<=2", 2));
  EXPECT_EQ(-1, wide.TokenInPos("1<=2", 4));
  EXPECT_EQ(-1, wide.TokenInPos("1<=2", 9));
  EXPECT_EQ(4, wide.TokenInPriority("MOD"));
  EXPECT_EQ(-1, wide.TokenInPriority("mo"));
  EXPECT_EQ(65520, wide.TokenSPriority(")"));
  String rest(" 7div 2");
  for (const char* token : {"7", "div"}) EXPECT_EQ(token, wide.GetToken(rest));
  EXPECT_EQ(" 2", rest);
  EXPECT_EQ(1, wide.Expr2Polish(rest, 1));
  EXPECT_EQ(0, wide.Output().Count());
}

TEST(Expressions, HoldForALine) {
  for (const char* e : {"( 'a'", "'a' )", "", "''", "'a' 'a'", "not", "'a' and", "123", "'A"}) {
    EXPECT_EQ(0, SearchForExpression("a 13", e, 1, 0)) << e;
  }
  for (const char* e : {"not ''", "'a' or (", "113", "'3\nb' and '\n'"}) {
    EXPECT_EQ(1, SearchForExpression("a 1\n3\nb", e, 1, 0)) << e;
  }
  BoolStack stack(1);
  stack.Push(5);
  stack.Push(0);
  EXPECT_TRUE(stack.Failed());
  stack.Or();
  for (const int left : {1, 0}) EXPECT_EQ(left, stack.Pop());
}

/// Writes a random group and returns what it comes to for the line: operators join from left to
/// right, and "not" takes all that follows.
bool Group(std::minstd_rand& random, const std::string& line, int depth, std::string& text) {
  for (bool value = false, both = false;; text += both ? " and " : "or") {
    const auto roll = random() % 5, letter = random() % 4;
    const bool inverted = depth > 0 && roll == 0, nested = depth > 0 && roll == 1;
    bool right = line[letter] != '-';
    text += inverted ? "not " : nested ? "(" : std::string("'") + "abcd"[letter] + '\'';
    if (inverted || nested) right = Group(random, line, depth - 1, text) != inverted;
    if (nested) text += ')';
    value = both ? value && right : value || right;
    if (inverted || random() % 2 == 0) return value;
    both = random() % 2 == 0;
  }
}

TEST(Expressions, AgreeWithASmallEvaluator) {
  std::minstd_rand random(3);
  for (int round = 0; round < 400; ++round) {
    std::string line, text;
    for (const char c : {'a', 'b', 'c', 'd'}) line += random() % 2 == 0 ? c : '-';
    const bool expected = Group(random, line, 4, text);
    ASSERT_EQ(expected, SearchForExpression(ToString(line), ToString(text), 1, 0) == 1)
        << line << ": " << text;
  }
}

class TextLog : public testing::Test {
 protected:
  /// The reply's words, which are also kept, with a blank between them.
  std::string Call(THandler handler, const TParams& params) {
    std::istringstream stream(CallHandler(handler, params));
    std::string reply, word;
    for (; stream >> word; words_.push_back(word)) reply += (reply.empty() ? "" : " ") + word;
    return reply;
  }

  std::vector<std::string> words_ = std::vector<std::string>(4, "0");
  const TEnabledTests enabled_;
  const TTempDir dir_;
  const std::string log_ = dir_.Path("the log\xE9"), mask_ = dir_.Path("%newestfile%");
};

TEST_F(TextLog, FollowsALogThroughItsLife) {
  const std::string wide(3000, 'w'), head = wide.substr(0, 1024);
  const auto add = std::ios::app, anew = std::ios::trunc;
  const struct {
    std::ios::openmode mode;
    std::string bytes;
    time_t time;
    const char* scanAll;
    std::string reply;  // position, size, time and current size at the end
  } steps[] = {
      {add, "first ERR\n", 1, "0", "0 0 9 10 1 10"},
      // The line feed of a CR LF counts as part of the next line.
      {add, "one ERR\r\nnone\ntwo ERR\n", 2, "0", "14 one ERR 1 18 10 1 32"},
      {add, "", 2, "0", "29 two ERR 0 32 32 2 32"},
      {add, "part ERR", 3, "0", "0 0 32 40 3 40"},
      {add, "\nX\n\n", 4, "0", "38 part ERR 0 43 44 4 44"},
      {add, "ERR a\nERR b\nz\n", 5, "1", "51 ERR b 0 58 58 5 58"},
      {anew, "\rERR r\n", 6, "0", "1 ERR r 0 7 7 6 7"},
      {add, wide + "ERR\n", 7, "1", "3008 " + head + " 0 3011 3011 7 3011"},
      // A line that no buffer holds counts once it has an end; what follows it is not lost.
      {add, '\n' + std::string(700'000, 'w') + "ERR", 8, "0", "0 0 3011 703015 8 703015"},
      {add, "\r\nERR 2\nx\n", 9, "1", "703017 ERR 2 0 703025 703025 9 703025"},
      {anew, "", 10, "0", "0 0 -1 0 10 0"},  // looking ahead found no baseline
      {add, "ERR\n", 11, "0", "0 0 3 4 11 4"},
  };
  for (const auto& [mode, bytes, time, all, reply] : steps) {
    std::ofstream(log_, mode) << bytes;
    const utimbuf times{time, time};
    utime(log_.c_str(), &times);
    const auto old = words_.end() - 4;
    TParams params{{1, log_}, {2, "ERR"}, {3, old[0]}, {4, old[1]}, {5, old[2]}, {7, all}};
    EXPECT_EQ("200 " + reply, Call(ProcessTest_TextLog, params));
  }
}

TEST_F(TextLog, TakesEachOptionFromItsPlace) {
  std::ofstream(log_) << "#\nERRx\nan err\n'ERR'\n'or' ERR \n";
  // Each with these options: an expression, scan all, case, whole word.
  const std::array<const char*, 3> cases[] = {
      {"err", "0000", "200 2 ERRx"},     {"err", "0010", "200 11 an err"},
      {"err", "0001", "200 11 an err"},  {"ERR", "0011", "200 16 'ERR'"},
      {"'ERR'", "0000", "200 15 'ERR'"}, {"'ERR'", "1000", "200 2 ERRx"},
      {"err", "0100", "200 26 'or'"},    {"R ", "0000", "200 28 'or'"},
      {"R\r", "0010", "200 3 ERRx"},     {"'%0A", "0000", "200 0 0 30 30"}};
  for (const auto& [text, options, reply] : cases) {
    const std::string e{options[0]}, a{options[1]}, c{options[2]}, w{options[3]}, path = ' ' + log_;
    TParams one{{1, path}, {2, text}, {3, "1"}, {4, "1"}, {6, e}, {7, a}, {8, c}, {9, w}};
    TParams two{{1, mask_}, {2, "1"}, {3, "1"}, {5, a}, {6, "?"}, {10, "1"}, {20, "1"}};
    two.insert({{11, text}, {12, e}, {13, c}, {14, w}});
    const std::string byOne = Call(ProcessTest_TextLog, one);
    EXPECT_TRUE(byOne.starts_with(reply)) << byOne << " for " << text;
    EXPECT_EQ(byOne + " 0 " + log_, Call(ProcessTest_TextLog2, two));
  }
}

TEST_F(TextLog, AnswersErrors) {
  std::ofstream(log_) << "\n\nx\ny\nx\ny\n";
  const std::string huge(400, '9'), missing = "301\nFile does not exist";
  ExpectReplies(ProcessTest_TextLog, {{{{1, "none"}, {3, "x"}}, missing},
                                      {{{1, "/dev/null"}}, "301\nFile \"null\" not found"},
                                      {{{1, log_}, {3, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {4, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {5, "1x"}}, "501\nWrong parameter"},
                                      {{{1, log_}, {3, "-5"}, {4, "1"}}, "301\nfseek error"}});
  ExpectReplies(ProcessTest_TextLog2, {{{{1, "none"}, {2, "x"}}, "501\nWrong parameter"},
                                       {{{1, mask_}, {10, "1"}, {16, "1"}}, missing}});
  TParams params{{1, log_}, {2, "x"}, {3, huge}, {4, "1"}};
  EXPECT_EQ("200 1 x 1 4 1 0 10", Call(ProcessTest_TextLog, params));
  params = {{1, mask_}, {2, "1"}, {3, "1"}, {6, "y"}, {11, "x"}, {16, "1"}};
  EXPECT_EQ("200 5 y 1 6 1 0 10 1 " + log_, Call(ProcessTest_TextLog2, params));
  params.insert({{10, "1"}, {20, "1"}});  // the match that waits is another filter's
  EXPECT_EQ("200 2 x 1 4 1 0 10 0 " + log_, Call(ProcessTest_TextLog2, params));
  // A file that says it is longer than what can be read of it.
  const char* const brief = "/sys/devices/system/cpu/online";
  Call(ProcessTest_TextLog, {{1, brief}, {2, "x"}, {4, "1"}});
  EXPECT_TRUE(FileSize(brief) != 4096 || *(words_.end() - 2) == "0");

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

using TFilters = std::vector<TTextLogFilter>;  // one or two
/// Of a scan: the match, its line, the next position, whether the first filter matched.
using TOutcome = std::tuple<double, std::string, double, int>;

/// The scan line by line, as it is described.
TOutcome ScanSimply(const std::string& log, size_t from, const TFilters& filters, bool scanAll) {
  TOutcome outcome(0, "", from, -1);
  auto& [match, found, begin, first] = outcome;  // of the line's bytes, the line ends before it too
  for (size_t p = from, end; (end = log.find_first_of("\r\n", p)) != log.npos; p = end + 1) {
    if (end == p) continue;
    const String line = ToString(log.substr(p, end - p));
    for (size_t i = filters.size(); i-- > 0;) {  // the first one is preferred
      const auto& [text, isExpression, exact, word] = filters[i];
      const int value = isExpression == 1 ? SearchForExpression(line, text, exact, word)
                                          : line.Search(text, exact, word);
      if (value != 0) outcome = {value + begin, ToStd(line.Copy(1, 1024)), begin, i == 0};
    }
    begin = static_cast<double>(end + 1);
    if (match != 0 && !scanAll) break;
  }
  return outcome;
}

TEST_F(TextLog, ScansAsALineByLineModel) {
  std::minstd_rand random(5);
  const auto roll = [&random](size_t sides) { return random() % sides; };
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
  const char* const words[] = {"a", "B1", "1a", "aaaaaaaaa", "b a", "", "\n", "b\r1", "#n#"};
  const char* const expressions[] = {"'a'",           "not 'a'",         "'B' and not 'a' or '1'",
                                     "'#n#' or 'aB'", "not 'x' and '1'", "'a",
                                     "('a'",          "'#n#' and '\n'",  ""};
  for (int round = 0; round < 400; ++round) {
    const size_t size = round % 200 == 0 ? 1'100'000 : roll(600);  // large: several blocks
    const size_t width = size > 600 ? size_t{300} << 5 * roll(3) : 1 + roll(300);
    std::string log;
    while (log.size() < size) {
      log += std::string(roll(width), '~');
      for (size_t n = roll(9); n > 0; --n) log += "aAbB1 ~#"[roll(8)];
      log += std::array{"\n", "\r\n", "\r", "\n\n\n", "#n#"}[roll(5)];
    }
    log.resize(size);
    TFilters filters(1 + roll(2));
    for (TTextLogFilter& f : filters) {
      const bool parsed = roll(2) == 0;
      f = {parsed ? expressions[roll(9)] : words[roll(9)], parsed, roll(2) == 0, roll(2) == 0};
    }
    compare(log, roll(std::min<size_t>(size, 999) + 1), filters, roll(2) == 0);
  }
}

/// In a process of its own, whose peak grows by what the request and its check take.
TEST_F(TextLog, TakesLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take memory of their own";
#endif
  const auto check = [](const TParams& params) {
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    const bool done = CallHandler(ProcessTest_TextLog, params).starts_with("200");
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
    TParams params{{1, dir_.Path("log")}, {2, text + last}, {3, "1"}, {4, "1"}, {6, "1"}};
    EXPECT_EXIT(check(params), testing::ExitedWithCode(0), "") << part << last;
  }
}

}  // namespace
