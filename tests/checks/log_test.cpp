#include <sys/resource.h>
#include <sys/syscall.h>
#include <utime.h>

#include <random>

#include "checks/log/exprparser.h"
#include "checks/log/textlog.h"
#include "fs/files.h"
#include "support/handlercall.h"

static thread_local int pauses = -1;  // counted from 0 on, and not made

extern "C" int nanosleep(const timespec* wanted, timespec* left) {
  if (pauses < 0) return static_cast<int>(syscall(SYS_nanosleep, wanted, left));
  return ++pauses, 0;
}

constexpr THandler kOne = ProcessTest_TextLog, kTwo = ProcessTest_TextLog2;

TEST(Expressions, BecomePostfixAndHoldForALine) {
  // Expression, postfix form or fault, whether it holds. An unknown word ends at operator or blank.
  std::istringstream cases(
      "'a' or 'b' and not('x' and'b')and ''|'a' 'b' or 'x' 'b' and '' and not and |1\n"
      "'a' AND (Not 'b') or 'c'|'a' 'b' not and 'c' or |0\n'a' 'a'|'a' 'a' |0\n113|113 |1\n"
      "987-6543210 or '\"'|987-6543210 '\"' or |0\n'a' and|'a' and |0\n'a' or (|'a' ( or |1\n"
      "error|Unknown operator: \"err\"|0\n'a' oR\t'b'|Unknown operator: \"oR\t'b'\"|0\n||0\n"
      "'a' )|Missing \"(\"|0\n'a |Unterminated string: 'a|0\n \t'it''s' \xE9|'it' 's' |0\n"
      "not|not |0\nnot ''|'' not |1\n");
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  std::string text, postfix, holds;
  while (getline(getline(getline(cases, text, '|'), postfix, '|'), holds)) {
    String source = ToString(text);
    EXPECT_EQ(holds == "1", SearchForExpression("a 1\n3\nb", source, 1, 0)) << text;
    std::string tokens;
    const bool done = parser.Expr2Polish(source, 0) != 0;
    for (int i = 0; i < parser.Output().Count(); ++i) tokens += ToStd(parser.Output()[i]) + ' ';
    EXPECT_EQ(postfix, done ? tokens : ToStd(parser.Error())) << text;
    EXPECT_EQ(done, parser.Error().Empty() && source.Empty());
  }
  TExprParser wide(PriorityTable2, sizeof PriorityTable2);
  EXPECT_TRUE(wide.TokenInPos("1<=2", 2) == 6 && wide.TokenInPos("1<=2", 4) == -1);
  EXPECT_TRUE(wide.TokenInPriority("MOD") == 4 && wide.TokenSPriority(")") == 65520);
  String rest(" 7div 2");
  EXPECT_TRUE(wide.GetToken(rest) == "7" && wide.GetToken(rest) == "div" && rest == " 2");
  EXPECT_TRUE(wide.Expr2Polish(rest, 1) == 1 && wide.Output().Count() == 0);
  rest = "'1'<2 mod 3 div 4 mod(5) and 6<=7==8>9 or'a'<>'b'>=0";
  wide.Expr2Polish(rest, 0);
  for (int i = 0; i < wide.Output().Count(); ++i) rest += wide.Output()[i] + ' ';
  EXPECT_EQ("'1' 2 3 mod 4 div 5 mod < 6 7 <= 8 == 9 > and 'a' 'b' <> 0 >= or ", rest);
  BoolStack full(1), few(1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(full.Failed() || few.Failed());
    full.Push(1), few.Push(1), few.Pop(), i == 1 ? few.Not() : void();
  }
  EXPECT_TRUE(full.Failed() && few.Failed());
  EXPECT_TRUE(TSearchExpression("'a' and", false, 1, 0).Holds({1}));
}

using TextLog = TCheckTest;

TEST_F(TextLog, FollowsALogThroughItsLife) {
  const std::string wide(3000, 'w'), head = wide.substr(0, 1024), log = dir_.Path("log");
  const auto add = std::ios::app, anew = std::ios::trunc;
  // Of each check: match, line, then position, size and time for the next one, current size.
  using TOutcome = std::tuple<double, std::string, double, double, double, double>;
  const std::tuple<std::ios::openmode, std::string, bool, TOutcome> steps[] = {
      {add, "first ERR\n", false, {0, "", 9, 10, 1, 10}},
      // The line feed of a CR LF counts as part of the next line.
      {add, "one ERR\r\nnone\ntwo ERR\n", false, {14, "one ERR", 18, 10, 1, 32}},
      {add, "", false, {29, "two ERR", 32, 10, 1, 32}},
      {add, "", false, {0, "", 32, 32, 4, 32}},
      {add, "", false, {0, "", 32, 32, 5, 32}},  // as long, but of another time
      {add, "part ERR", false, {0, "", 32, 40, 6, 40}},
      {add, "\nX\n\n", true, {38, "part ERR", 43, 44, 7, 44}},
      {anew, "\rERR r\n", true, {1, "ERR r", 7, 7, 8, 7}},
      {add, wide + "ERR\n", true, {3008, head, 3011, 3011, 9, 3011}},
      // A line that no buffer holds counts once it has an end; what follows it is not lost.
      {add, '\n' + std::string(700'000, 'w') + "ERR", false, {0, "", 3011, 703015, 10, 703015}},
      {add, "\r\nERR 2\nx\n", true, {703017, "ERR 2", 703025, 703025, 11, 703025}},
      {anew, "", false, {0, "", 0, 0, 12, 0}},
      {add, "ERR\n", false, {0, "", 3, 4, 13, 4}},
  };
  double position = 0, size = 0, time = 0, current;
  utimbuf times{};
  String line, error("old");
  for (const auto& [mode, bytes, all, outcome] : steps) {
    std::ofstream(log, mode) << bytes;
    times.modtime += 1;
    utime(log.c_str(), &times);
    const double match = CheckFileForExpression(log.c_str(), "ERR", position, size, time, 0, all, 1,
                                                0, line, error, current);
    EXPECT_EQ(outcome, TOutcome(match, ToStd(line), position, size, time, current)) << bytes;
    EXPECT_EQ("", error);
  }
}

TEST_F(TextLog, TakesEachOptionFromItsPlace) {
  const std::string log = dir_.File("the log\xE9", "#\nERRx\nan err\n'ERR'\n'or' ERR \n");
  const std::array<const char*, 4> cases[] = {
      {"err", "", "", "     2\nERRx"},          {"err", "8=1", "13=1", "    11\nan err"},
      {"err", "9=1", "14=1", "    11\nan err"}, {"'ERR'", "", "", "    15\n'ERR'"},
      {"'ERR'", "6=1", "12=1", "     2\nERRx"}, {"err", "7=1", "5=1", "    26\n'or'"},
      {"R ", "", "", "    28\n'or'"},           {"R\r", "", "", "     3\nERRx"},
      {"'%0A", "", "", "     0\n\n0\n    30\n"}};
  for (const auto& [text, one, two, reply] : cases) {
    const std::string first = ' ' + log + ',' + text + ",1,1," + one;
    const std::string byOne = CallHandler(kOne, Params(first));
    EXPECT_TRUE(byOne.starts_with(std::string("200\n") + reply)) << byOne << " for " << first;
    Expect(kTwo, byOne + "0\n" + log + '\n',
           std::string("@%newestfile%,1,1,6=?,10=1,20=1,11=") + text + ',' + two);
  }
}

TEST_F(TextLog, AnswersErrorsAndWhatWaits) {
  const std::string log = dir_.File("x", "\n\nx\ny\nx\ny\n"), two = "@%newestfile%,1,1,6=y,11=x,";
  const utimbuf times{5, 5};
  utime(log.c_str(), &times);
  Expect(kOne, "301\nFile does not exist", "none,3=x");
  Expect(kOne, "301\nFile \"null\" not found", "/dev/null");
  Expect(kOne, "501\nWrong parameter", "@x,3=1x|@x,4=1x|@x,5=1x");
  Expect(kOne, "301\nfseek error", "@x,3=-5,4=1");
  Expect(kOne, "200\n     1\nx\n1\n     4\n     1\n     0\n    10\n",
         "@x,x," + std::string(400, '9') + ",1");
  Expect(kOne, "200\n     7\nx\n0\n    10\n    10\n     5\n    10\n", "@x,x,4,1");
  Expect(kTwo, "501\nWrong parameter", "none,x");
  Expect(kTwo, "301\nFile does not exist", "@%newestfile%,10=1,16=1");
  Expect(kTwo, "200\n     5\ny\n1\n     6\n     1\n     0\n    10\n1\n@x\n", two + "16=1");
  // The match that waits is another filter's.
  Expect(kTwo, "200\n     2\nx\n1\n     4\n     1\n     0\n    10\n0\n@x\n", two + "10=1,20=1");
  // A file that says it is longer than what can be read of it.
  const std::string brief = CallHandler(kOne, {"/sys/devices/system/cpu/online", "x", "", "1"});
  EXPECT_THAT(brief, testing::MatchesRegex("200\n.*\n     1\n     0\n +[0-9]{4,}\n"));

  EXPECT_EQ(0, chmod(log.c_str(), 0) + chmod(dir_.Path().c_str(), 0755));
  syscall(SYS_setfsuid, 65534);
  pauses = 0;
  Expect(kOne, "301\nCannot open file", "@x,x,1,1");
  syscall(SYS_setfsuid, geteuid());
  EXPECT_EQ(3, std::exchange(pauses, -1));
}

using TFilters = std::vector<TTextLogFilter>;  // two or one
/// Of a scan: the match, its line, the next position, whether the first filter matched.
using TOutcome = std::tuple<double, std::string, double, int>;

static TOutcome ScanSimply(const std::string& log, size_t from, const TFilters& two, bool scanAll) {
  TOutcome outcome(0, "", from, -1);
  auto& [match, found, begin, first] = outcome;  // of the line's bytes, the line ends before it too
  for (size_t p = from, end; scanAll || match == 0; p = end + 1) {
    if ((end = log.find_first_of("\r\n", p)) == log.npos) break;
    if (end == p) continue;
    const String line = ToString(log.substr(p, end - p));
    for (size_t i = two.size(); i-- > 0;) {  // the first one is preferred
      const auto& [text, isExpression, exact, word] = two[i];
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
    const std::string path = dir_.File("log", log);
    double position = static_cast<double>(from), size = 1, time = 0, current;
    int first = -1;
    String line, error;
    const double match =
        CheckFileForExpression2(path.c_str(), position, size, time, f.front(), f.back(),
                                f.size() == 2, scanAll, first, line, error, current);
    ASSERT_EQ(ScanSimply(log, from, f, scanAll), TOutcome(match, ToStd(line), position, first));
  };
  for (size_t shift = 0; shift < 9; ++shift) {  // one long line, words at the edges of its blocks
    std::string log = "\n~\n" + std::string(5 * kReadBytes, '~') + "end\n";
    size_t edge = kReadBytes + 2 - shift;
    for (const char* word : {"1cats", "cats1", "cats~"}) log.replace(edge += kReadBytes, 5, word);
    compare(log, 1, {{"cats", 0, 1, 1}, {"1c", 0, 1, 1}}, false);
    const String last = ToString(log).Copy(2 * kReadBytes, 3 * kReadBytes + 6);  // in no block
    compare(log, 1, {{"none", 0, 1, 1}, {last, 0, 1, 0}}, false);
  }
  std::minstd_rand random(5);
  const auto roll = [&random](size_t sides) { return random() % sides; };
  const char* const words[] = {"a", "B1", "b a", "", "\n", "b\r1", "#"};
  const char* const expressions[] = {"'a'",  "not 'a'",    "'a",
                                     "('a'", "'#'and'\n'", "'B'or'aa'and not'a'or'1'"};
  for (int round = 0; round < 600; ++round) {
    const size_t size = round % 300 == 0 ? 1'100'000 : roll(600);  // large: several blocks
    const size_t width = size > 600 ? size_t{300} << 5 * roll(3) : 1 + roll(300);
    std::string log;
    while (log.size() < size) log.append(roll(15) == 0 ? roll(width) : 1, "~aAbB1 #\n\r"[roll(10)]);
    TFilters filters(1 + roll(2));
    for (TTextLogFilter& f : filters) {
      const bool parsed = roll(2) == 0;
      f = {parsed ? expressions[roll(6)] : words[roll(7)], parsed, roll(2) == 0, roll(2) == 0};
    }
    compare(log, roll(std::min<size_t>(size, 999) + 1), filters, roll(2) == 0);
  }
}

/// In a process of its own, whose peak grows by what the request and its check take.
TEST_F(TextLog, TakesLittleMemory) {
  if (kSanitized) GTEST_SKIP();
  const auto check = [](const std::string& params) {
    VxRequest request;
    request = ToString(params);
    QovReply reply;
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts anew
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    kOne(request, reply);
    getrusage(RUSAGE_SELF, &after);
    _exit(reply.Pos("200") != 1 || after.ru_maxrss - before.ru_maxrss > 9 * 1024);
  };
  // A part of an expression, and its end; without a part the log is one long line.
  const char* const cases[][2] = {{"'a'or", "'b'"}, {"1or", "1"}, {"'a'", ""},
                                  {"(", ""},        {"'q", "'"},  {"", "'q'"}};
  for (const auto& [part, last] : cases) {
    truncate(dir_.File("log", "x\ny\nx\ny\nz").c_str(), *part == 0 ? 30'000'000 : 9);
    std::string text;
    while (*part != 0 && text.size() < 1'500'000) text += part;
    const std::string params = dir_.Path("log\n") + text + last + "\n1\n1\n\n1\n";
    EXPECT_EXIT(check(params), testing::ExitedWithCode(0), "") << part << last;
  }
}
