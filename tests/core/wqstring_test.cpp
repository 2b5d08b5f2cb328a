#include "core/wqstring.h"

#include <gmock/gmock.h>
#include <limits.h>

#include <algorithm>
#include <random>

#include "support/text.h"

using testing::ElementsAre;

TEST(StringTest, GrowsByTheStepAndCutsInAFixedBuffer) {
  String s("0123456789"), fixed(8), grown(0);
  s.SetLength(127);
  EXPECT_EQ(128, s.Capacity());
  s.SetLength(128);
  EXPECT_EQ(std::string("0123456789") + std::string(118, '\0'), ToStd(s));
  s.SetLength(1);
  EXPECT_STREQ("0", s.CStr());
  s = "";
  EXPECT_EQ(256, s.Capacity());
  (s = "x") = String();
  EXPECT_TRUE(s.Data() == nullptr && s.Empty()) << "assigning an empty string releases the buffer";
  s = ToString(std::string(100, 'x'));
  s += s;
  s.AddData(s.Data() + 50, 100);  // its own bytes across a growth
  EXPECT_EQ(std::string(300, 'x'), ToStd(s));
  grown += "0123456789";
  fixed = String(grown);
  EXPECT_EQ(24, fixed.AddChar('c') + fixed.AddData("ab", 2) + fixed.AddData("", 0));
  fixed.Delete(7, 1);
  (fixed += 'c') += "de";
  EXPECT_EQ("0123457c", fixed);
  EXPECT_EQ(8, fixed.Capacity());
  EXPECT_EQ(136, fixed.SetZero().Capacity());
  String moved(std::move(fixed));
  moved += grown + '8' + "9" + s;
  String freed(8);
  (freed = String()) += grown;
  EXPECT_EQ(128, freed.Capacity()) << "a fixed size goes with the buffer";
  EXPECT_EQ("0123457c012345678989" + std::string(300, 'x'), ToStd(moved));
}

namespace {

/// What String::Search must find.
int SimpleSearch(std::string text, std::string what, bool caseSensitive, bool wholeWord) {
  const auto isWord = [](char c) { return isascii(c) && isalnum(c); };
  for (std::string* s : {&text, &what}) {
    for (char& c : *s) c = caseSensitive || !isascii(c) ? c : static_cast<char>(tolower(c));
  }
  for (size_t p = 0; !what.empty() && (p = text.find(what, p)) != text.npos; ++p) {
    const size_t after = p + what.size();
    const bool inWord =
        (p > 0 && isWord(text[p - 1])) || (after < text.size() && isWord(text[after]));
    if (!wholeWord || !inWord) return static_cast<int>(p) + 1;
  }
  return 0;
}

}  // namespace

// The texts repeat a few bytes, many an "a", so that what is looked for nearly stands everywhere.
TEST(StringTest, FindsWhatASimpleSearchFinds) {
  constexpr char kBytes[] = "aA-_bB zZ@[`{09/:\xC9\xE9";
  std::minstd_rand random(1);
  const auto below = [&random](size_t bound) { return random() % bound; };
  for (size_t round = 0; round < 3000; ++round) {
    std::string unit(1 + below(round % 2 == 0 ? 4 : 100), 'x'), text(below(3000), 'x');
    const auto any = [&] {
      return below(1 + round % 7) == 0 ? kBytes[below(1 + round % 19)] : 'a';
    };
    for (char& c : unit) c = any();
    for (size_t i = 0; i < text.size(); ++i) text[i] = unit[i % unit.size()];
    std::string what = text.substr(below(text.size() + 1), below(round % 3 == 0 ? 4 : 200));
    for (size_t changes = text.size() / (1 + below(400)); changes > 0; --changes)
      text[below(text.size())] = any();
    if (below(2) == 0 && !what.empty()) what[below(what.size())] = any();
    for (const int options : {3, 1, 2, 0}) {
      const int cased = options & 1, whole = options & 2;
      if (cased == 0) strupper(what.data(), static_cast<int>(what.size() / 2));
      ASSERT_EQ(SimpleSearch(text, what, cased, whole),
                ToString(text).Search(ToString(what), cased, whole))
          << text << '\n'
          << what;
    }
  }
  // After one that fails at its start alone, bytes are known to be the same, until one fails.
  std::string run, near;
  while (run.size() < 200) run += "ab";
  while (near.size() < 3000) near += run.substr(50) + "cc";
  near += 'x' + run.substr(1) + "zz" + std::string(196, 'q') + "ab";
  EXPECT_EQ(0, ToString(near).Search(ToString(run), 1, 0));
  EXPECT_EQ(0, mempos(nullptr, 1, "a", 1) + mempos("a", 1, nullptr, 1) + mempos("a", 1, "a", 0));
  EXPECT_EQ(3, mempos("aAA", 3, "A", 1) + memposi("aAA", 3, "A", 1));
  EXPECT_EQ(1, memposi("a-Z---aaaaaaaaaa", 16, "A-z---AAAAAAAAAA", 16));
  EXPECT_EQ(0, memposi("a@aaaaaaaaaaaaaa", 16, "a`aaaaaaaaaaaaaa", 16));
  EXPECT_EQ(0, memposi("a[aaaaaaaaaaaaaa", 16, "a{aaaaaaaaaaaaaa", 16));
  EXPECT_EQ(4, String("abc").Pos('b') + String("abc").Pos("bx", 1) + String("abc").Pos(nullptr));
}

// Deliberate: RemoveRepeats keeps two at the start, ReplaceAll a remainder that is one occurrence;
// bytes above 127 are blank, being negative.
TEST(StringTest, TakesAndChangesParts) {
  using S = String;
  const S list("a,,c"), four("abcd");
  EXPECT_THAT((std::vector{four.Copy(2, INT_MAX), four.Copy(4, 1), four.Copy(5, 1)}),
              ElementsAre("bcd", "d", ""));
  EXPECT_THAT((std::vector{list.GetWord(0, ','), list.GetWord(2, ','), list.GetWord(3, ','),
                           list.GetWord(4, ','), S("a,").GetWord(2, ',')}),
              ElementsAre("a", "", "c", "", ""));
  EXPECT_THAT((std::vector{S(" \t\xE9\x61\xE9z\x80\n").Trim(), S(" !b! ").Trim(), S("   ").Trim()}),
              ElementsAre("a\xE9z", "!b!", ""));
  EXPECT_THAT((std::vector{S("a   b").RemoveRepeats(' '), S("a  ").RemoveRepeats(' '),
                           S("   x").RemoveRepeats(' ')}),
              ElementsAre("a b", "a ", "  x"));
  EXPECT_THAT((std::vector{S("ab").ReplaceAll("ab", "X", 1), S("abc").ReplaceAll("ab", "X", 1),
                           S("xabab").ReplaceAll("ab", "X", 1), S("xab").ReplaceAll("AB", "X", 0),
                           S("xab").ReplaceAll("AB", "X", 1), four.ReplaceAll("", "X", 1)}),
              ElementsAre("ab", "Xc", "xXab", "xX", "xab", "abcd"));
  S cut("abcdef");
  for (const auto& [start, count] : {std::pair(0, 1), {7, 1}, {5, 9}, {2, 2}})
    cut.Delete(start, count);
  EXPECT_STREQ("adx", (cut += 'x').CStr());
  char bytes[] = "@AZ[`az{\xE9";
  EXPECT_STREQ("@AZ[`AZ{\xE9", strupper(bytes));
  EXPECT_EQ("@az[`az{\xE9", S(bytes).LowerCase());
  const std::tuple<S, int, const char*> copies[] = {{"abcd", -1, "abcd|-"},
                                                    {"abc", 4, "abc|--"},
                                                    {"abcd", 4, "abc|--"},
                                                    {"abcd", 0, "------"},
                                                    {"", 4, "------"}};
  for (const auto& [text, size, expected] : copies) {
    char buf[] = "------";
    text.StrCpy(buf, size);
    std::replace(buf, buf + 6, '\0', '|');
    EXPECT_STREQ(expected, buf);
  }
  EXPECT_TRUE(isdecimalnum("-1-2") && isdecimalnum("") && isdecimalnum("09", 2));
  EXPECT_FALSE(isdecimalnum("1.5") || isdecimalnum("-12", 3) || isdecimalnum("/", 1) ||
               isdecimalnum(":", 1));
  EXPECT_TRUE(S() == nullptr && four[4] == 'd' && four == "abcd" && four == S("abcd"));
  EXPECT_FALSE(four == nullptr || four == "abce" || four == "abcde" || four == S("abce"));
}

TEST(StrListTest, KeepsEntriesOfAnyLength) {
  TStrList list, copy;
  for (size_t i = 0; i < 129; ++i)
    list.Add(ToString(std::string(i % 7, static_cast<char>('a' + i % 26))));
  EXPECT_EQ(256, list.Capacity());
  list.Delete(1);
  copy.Add("former");
  copy = list;
  list.Clear();
  EXPECT_EQ(128, copy.Count() + list.Count() + list.Capacity());
  EXPECT_THAT((std::vector{copy[0], copy[1], copy[2], copy[127]}),
              ElementsAre("", "cc", "ddd", "yy"));
  copy.DeleteLast();
  EXPECT_EQ("x", copy[copy.Count() - 1]);
  const std::string failed = ": Assertion `index>=0 && index<count' failed";
  EXPECT_DEATH(copy[127], "wqstring:495: String TStrList::operator\\[\\]\\(int\\)" + failed);
  EXPECT_DEATH(list.Delete(0), failed);
  EXPECT_DEATH(list.DeleteLast(), "wqstring:471: void TStrList::Delete\\(int\\)" + failed);
}
