#include "core/wqstring.h"

#include <random>

#include "support/scopes.h"

using namespace std::string_literals;

TEST(StringTest, GrowsByTheStepAndCutsInAFixedBuffer) {
  String s("0123456789"), grown(0), fixed(8), freed(8);
  s.SetLength(127);
  EXPECT_EQ(128, s.Capacity());
  s.SetLength(128);
  EXPECT_EQ(256, s.Capacity());
  EXPECT_EQ("0123456789" + std::string(118, '\0'), ToStd(s));
  s.SetLength(1);
  EXPECT_STREQ("0", s.CStr());
  EXPECT_NE(nullptr, (s = "").Data());
  EXPECT_EQ(nullptr, (s = String()).Data()) << "assigning an empty string releases the buffer";
  s = ToString(std::string(200, 'x'));
  fixed = String(grown += "0123456789");  // lies behind, so that the next growth moves
  s.AddData(s.Data(), 100);               // its own bytes
  EXPECT_EQ(24, fixed.AddChar('c') + fixed.AddData("ab", 2) + fixed.AddData("", 0) +
                    freed.CopyData(nullptr, 1));
  fixed.Delete(7, 1);
  (fixed += 'c') += "de";
  EXPECT_EQ(144, fixed.Capacity() + fixed.SetZero().Capacity());
  String moved(std::move(fixed));
  EXPECT_EQ("0123457c01234567898" + std::string(300, 'x'), ToStd((moved += grown + '8') + s));
  EXPECT_EQ(128, ((freed = String()) += "x").Capacity()) << "a fixed size goes with the buffer";
}

static int SimpleSearch(String text, String what, int caseSensitive, int wholeWord) {
  if (caseSensitive == 0) text.LowerCase(), what.LowerCase();
  const std::string in = ToStd(text), wanted = ToStd(what);
  const auto isWord = [&](size_t i) { return i < in.size() && isascii(in[i]) && isalnum(in[i]); };
  for (size_t p = 0; !wanted.empty() && (p = in.find(wanted, p)) != in.npos; ++p)
    if (!wholeWord || !(isWord(p - 1) || isWord(p + wanted.size()))) return static_cast<int>(p) + 1;
  return 0;
}

// What is looked for repeats itself, and the texts its parts, so that it nearly stands everywhere.
TEST(StringTest, FindsWhatASimpleSearchFinds) {
  constexpr char kBytes[] = "aA-_bB zZ@[`{09/:\xC9\xE9";
  std::minstd_rand random(1);
  const auto below = [&random](int bound) { return static_cast<int>(random() >> 1) % bound; };
  for (int round = 0; round < 5000; ++round) {
    const auto any = [&] { return kBytes[below(1 + round % 19)]; };
    String what, text;
    for (const int size = below(round % 3 == 0 ? 4 : 200); what.Length() < size;)
      below(4) == 0 ? what += any() : what += what.Copy(1, 1 + below(size));
    for (const int size = below(6) * below(500); text.Length() < size; text += any())
      text += what.Copy(1 + below(2) * below(200), below(250));
    if (below(2) == 0) text += what;
    for (const int options : {3, 1, 2, 0}) {
      if (options % 2 == 0) strupper(what.Data(), what.Length() / 2);
      ASSERT_EQ(SimpleSearch(text, what, options & 1, options & 2),
                text.Search(what, options & 1, options & 2))
          << ToStd(text + "\n" + what);
    }
  }
  for (size_t i = 0; i < 200; ++i)  // no byte behind the end counts
    EXPECT_EQ(0, mempos((std::string(i, 'q') + "xy").data(), static_cast<int>(i) + 1, "xy", 2));
  // In a text that wears the quick search out: what stands where the shorter part of one place and
  // the longer one of the next meet belongs to one of them.
  std::string worn, b(69, 'b');
  for (int i = 0; i < 10; ++i) worn += b + "bbb" + std::string(72, 'c');
  EXPECT_EQ(0, ToString(worn + "x" + b + "ec" + b + "ec").Search(ToString("b" + b + "ec"), 1, 0));
  // Compared at each place anew, these would take minutes.
  const String many = ToString(std::string(10'000'000, 'a')), half = many.Copy(1, 5000);
  EXPECT_EQ(0, many.Search(half + 'b' + half, 0, 0) + many.Search(half + half, 1, 1));
  const char* s = "aaa";
  const TTextFinder word("a", 1, 1);  // its neighbours are those between begin and end
  EXPECT_TRUE(word.Find(s + 1, s + 1, s + 2) && !word.Find(s, s + 1, s + 2));
  EXPECT_EQ(3, mempos("aAA", 3, "A", 1) + memposi("aAA", 3, "A", 1) + mempos("a", 1, "a", 0) +
                   mempos(nullptr, 1, "a", 1) + mempos("a", 1, nullptr, 1));
  EXPECT_EQ(4, String("abc").Pos('b') + String("abc").Pos("bx", 1) + String("abc").Pos(nullptr));
}

// Deliberate: RemoveRepeats keeps two at the start, ReplaceAll a remainder that is one occurrence;
// bytes above 127 are blank, being negative.
TEST(StringTest, TakesAndChangesParts) {
  using S = String;
  const S list("a,,c"), four("abcd"), xab("xab");
  EXPECT_EQ("bcd d", four.Copy(2, INT_MAX) + ' ' + four.Copy(4, 1) + four.Copy(5, 1));
  EXPECT_EQ("a c", list.GetWord(0, ',') + list.GetWord(2, ',') + ' ' + list.GetWord(3, ',') +
                       list.GetWord(4, ',') + S("a,").GetWord(2, ','));
  EXPECT_EQ("a\xE9z!b!", S(" \t\xE9\x61\xE9z\x80\n").Trim() + S(" !b! ").Trim() + S("   ").Trim());
  EXPECT_EQ("a b|a |  x", S("a   b").RemoveRepeats(' ') + '|' + S("a  ").RemoveRepeats(' ') + '|' +
                              S("   x").RemoveRepeats(' '));
  EXPECT_STREQ("a", S("a ").Trim().CStr());
  EXPECT_EQ("ab XcXc xXab xX xab abcd",
            S("ab").ReplaceAll("ab", "X", 1) + ' ' + S("abcabc").ReplaceAll("ab", "X", 1) + ' ' +
                S("xabab").ReplaceAll("ab", "X", 1) + ' ' + xab.ReplaceAll("AB", "X", 0) + ' ' +
                xab.ReplaceAll("AB", "X", 1) + ' ' + four.ReplaceAll("", "X", 1));
  S cut("abcdef");
  for (const int start : {0, 7, 5}) cut.Delete(start, 9);
  cut.Delete(2, 2);
  EXPECT_STREQ("adx", (cut += 'x').CStr());
  for (const int size : {-1, 5, 4, 0}) {
    char buf[] = "------";
    S().StrCpy(four.StrCpy(buf, size), size);
    EXPECT_EQ(size == 0 ? "------" : size == 4 ? "abc\0--"s : "abcd\0-"s, std::string(buf, 6));
  }
  char bytes[] = "@AZ[`az{\xE9";
  EXPECT_STREQ("@AZ[`AZ{\xE9", strupper(bytes));
  EXPECT_EQ("@az[`az{\xE9", S(bytes).LowerCase());
  EXPECT_FALSE(isdecimalnum("-", 1) || isdecimalnum("/", 1) || isdecimalnum(":", 1));
  EXPECT_FALSE(four == nullptr || four == "abce" || four == "abcde" || four == S("abce"));
}

TEST(StrListTest, GrowsByTheStepAndStopsTheProcessOutsideOfIt) {
  TStrList list;
  for (size_t i = 0; i < 129; ++i) list.Add(ToString(std::string(i % 7, 'x')));
  EXPECT_EQ(256, list.Capacity());
  list.Delete(1);
  EXPECT_EQ("xxxx", list[0] + list[1] + list[127] + list[6]);
  const std::string failed = ": Assertion `index>=0 && index<count' failed";
  EXPECT_DEATH(list[128], "wqstring:495: String TStrList::operator\\[\\]\\(int\\)" + failed);
  list.Clear();
  EXPECT_EQ(0, list.Count() + list.Capacity());
  EXPECT_DEATH(list.DeleteLast(), "wqstring:471: void TStrList::Delete\\(int\\)" + failed);
}
