#include "core/wqstring.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/text.h"

TEST(StringTest, SizesItsBufferByTheStep) {
  const struct {
    int add, capacity;
  } cases[] = {{1, 128}, {127, 128}, {128, 256}, {255, 256}, {256, 384}};
  for (const auto& c : cases) {
    String s;
    s.AddData(std::string(static_cast<size_t>(c.add), 'x').c_str(), -1);
    EXPECT_EQ(c.capacity, s.Capacity()) << c.add;
  }
  EXPECT_EQ(nullptr, String("").Data());
  String s("0123456789");
  s.SetLength(128);
  EXPECT_EQ(256, s.Capacity());
  EXPECT_EQ(std::string("0123456789") + std::string(118, '\0'), ToStd(s));
  s.SetLength(0);
  EXPECT_EQ(nullptr, s.Data());
}

TEST(StringTest, AssigningEmptyTextKeepsTheBufferAndAssigningAnEmptyStringReleasesIt) {
  String s("abc");
  s = "";
  EXPECT_EQ(128, s.Capacity());
  s = String();
  EXPECT_EQ(nullptr, s.Data());
  s = "abc";
  s = static_cast<const char*>(nullptr);
  EXPECT_EQ(nullptr, s.Data());
  String kept("abc");
  kept = "";
  s = "abc";
  s = std::move(kept);
  EXPECT_EQ(nullptr, s.Data());
}

TEST(StringTest, FixedStringCutsWhatDoesNotFit) {
  String s(8);
  s = "0123456789";
  s += "ab";
  s += 'c';
  EXPECT_EQ("01234567", s);
  EXPECT_EQ(8, s.Capacity());
  EXPECT_EQ(136, s.SetZero().Capacity());
  const String copy(String(8) + "0123456789");
  EXPECT_EQ("0123456789", copy);
  String moved(std::move(s));
  moved += "89";
  EXPECT_EQ("0123456789", moved);
}

TEST(StringTest, AppendsItsOwnBytesAcrossAGrowth) {
  String s(std::string(100, 'x').c_str());
  s += s;
  s.AddData(s.Data() + 50, 100);
  EXPECT_EQ(std::string(300, 'x'), ToStd(s));
  s = "abc";
  EXPECT_EQ(3, s.CopyData(s.Data(), 1));
}

TEST(StringTest, ComparesAndJoinsZeroBytes) {
  const String zero = ToString(std::string_view("a\0b", 3));
  EXPECT_NE("a", zero);
  EXPECT_EQ(zero, String("a") + '\0' + "b");
  EXPECT_EQ(2, zero.Pos('\0'));
  EXPECT_EQ(String(), static_cast<const char*>(nullptr));
  EXPECT_EQ("a", String("a") + static_cast<const char*>(nullptr));
}

TEST(StringTest, FindsPositions) {
  EXPECT_EQ(0, String("").Pos('x'));
  EXPECT_EQ(0, String("ab").Pos("abc", 3));
  EXPECT_EQ(2, String("abc").Pos("bX", 1));
  EXPECT_EQ(0, String("abc").Pos(""));
  const struct {
    const char *text, *what;
    int caseSensitive, wholeWord, position;
  } cases[] = {
      {"concat cat", "cat", 1, 1, 8}, {"a cat", "CAT", 0, 0, 3},    {"a cat", "CAT", 1, 0, 0},
      {"cats", "cat", 1, 1, 0},       {"cat9 cat", "cat", 1, 1, 6}, {"_cat_", "cat", 1, 1, 2},
      {"aaa-aa", "aa", 1, 1, 5},      {"abc", "", 1, 0, 0},         {"\xC9x", "\xE9X", 0, 0, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.position, String(c.text).Search(c.what, c.caseSensitive, c.wholeWord))
        << c.text << ' ' << c.what;
  }
}

TEST(StringTest, CutsCopiesAndDeletesToTheString) {
  const struct {
    int start, count;
    const char *copied, *left;
  } cases[] = {{2, 100, "bcd", "a"}, {5, 1, "", "abcd"}, {2, 0, "", "abcd"},
               {3, 1, "c", "abd"},   {1, 4, "abcd", ""}, {2, 0x7fffffff, "bcd", "a"}};
  for (const auto& c : cases) {
    String s("abcd");
    EXPECT_EQ(c.copied, s.Copy(c.start, c.count));
    s.Delete(c.start, c.count);
    EXPECT_EQ(c.left, s);
  }
  String s("abcd");
  s.Delete(0, 1);
  EXPECT_EQ("abcd", s);
  char buf[8] = "-------";
  EXPECT_STREQ("abc", s.StrCpy(buf, 4));
  EXPECT_STREQ("abc", String().StrCpy(buf, 4));
  EXPECT_STREQ("abcd", s.StrCpy(buf, -1));
}

TEST(StringTest, TakesWords) {
  const struct {
    const char* text;
    int word;
    const char* expected;
  } cases[] = {{"a,,c", 2, ""}, {"a,,c", 3, "c"}, {"a,,c", 0, "a"}, {"a,b,", 3, ""},
               {"a,b", 3, ""},  {",b", 1, ""},    {"", 1, ""},      {"a,b", 2, "b"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, String(c.text).GetWord(c.word, ',')) << c.text << ' ' << c.word;
  }
}

TEST(StringTest, TrimsBytesThatAreBlankAsSignedNumbers) {
  EXPECT_EQ("abc", String(" \t\xE9"
                          "abc\x80\n")
                       .Trim());
  EXPECT_EQ("a \xE9 b", String("a \xE9 b").Trim());
  String blank("   ");
  EXPECT_EQ("", blank.Trim());
  EXPECT_EQ(128, blank.Capacity());
}

TEST(StringTest, CollapsesRunsButKeepsTwoAtTheStart) {
  const struct {
    const char *text, *expected;
  } cases[] = {{"a   b", "a b"}, {"a  ", "a "}, {"   x", "  x"},
               {"  x", "  x"},   {" x", " x"},  {"    ", "  "}};
  for (const auto& c : cases) EXPECT_EQ(c.expected, String(c.text).RemoveRepeats(' ')) << c.text;
}

TEST(StringTest, ReplacesAllButARemainderThatIsOneOccurrence) {
  const struct {
    const char *text, *what;
    int caseSensitive;
    const char* expected;
  } cases[] = {
      {"ab", "ab", 1, "ab"},  {"abc", "ab", 1, "Xc"},   {"xabab", "ab", 1, "xXab"},
      {"xab", "ab", 1, "xX"}, {"xabc", "AB", 0, "xXc"}, {"xabc", "AB", 1, "xabc"},
      {"abc", "", 1, "abc"},  {"", "ab", 1, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, String(c.text).ReplaceAll(c.what, "X", c.caseSensitive)) << c.text;
  }
}

TEST(StringTest, ChangesTheCaseOfAsciiOnly) {
  EXPECT_EQ("az@[\xC9", String("Az@[\xC9").LowerCase());
  char text[] = "az\0az";
  EXPECT_STREQ("AZ", strupper(text));
  EXPECT_STREQ("az", text + 3);
  EXPECT_STREQ("AZ", strupper(text, 5) + 3);
}

TEST(StringTest, RecognisesNumbersWithAnAsymmetryForMinus) {
  EXPECT_TRUE(isdecimalnum("-1-2"));
  EXPECT_TRUE(isdecimalnum(""));
  EXPECT_FALSE(isdecimalnum("1.5"));
  EXPECT_FALSE(isdecimalnum("-12", 3));
  EXPECT_TRUE(isdecimalnum("12x", 2));
}

TEST(StringTest, FindsBytesAsASimpleSearchDoes) {
  unsigned seed = 1;
  const auto next = [&seed](unsigned bound) {
    seed = seed * 1103515245 + 12345;
    return (seed >> 16) % bound;
  };
  for (int round = 0; round < 5000; ++round) {
    std::string buf(next(70), '\0'), pat(next(4), '\0');
    for (char& c : buf) c = "aAbB\xC9"[next(5)];
    for (char& c : pat) c = "aAbB\xE9"[next(5)];
    const int len = static_cast<int>(buf.size()), plen = static_cast<int>(pat.size());
    const auto expected = pat.empty() ? 0 : static_cast<int>(buf.find(pat) + 1);
    ASSERT_EQ(expected, mempos(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
    strlower(buf.data(), len);
    const std::string lower = ToStd(ToString(pat).LowerCase());
    const auto folded = pat.empty() ? 0 : static_cast<int>(buf.find(lower) + 1);
    strupper(buf.data(), static_cast<int>(next(70)) % (len + 1));
    ASSERT_EQ(folded, memposi(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
  }
  EXPECT_EQ(0, mempos(nullptr, 1, "a", 1));
  EXPECT_EQ(0, memposi("a", 1, nullptr, 1));
}

TEST(StrListTest, GrowsAndDeletes) {
  TStrList list;
  for (int i = 0; i < 129; ++i) list.Add(i == 1 ? String() : String(std::to_string(i).c_str()));
  EXPECT_EQ(256, list.Capacity());
  list.Delete(0);
  list.DeleteLast();
  const TStrList copy(list);
  list.Clear();
  EXPECT_EQ(127, copy.Count());
  EXPECT_EQ("", copy[0]);
  EXPECT_EQ("127", copy[126]);
  EXPECT_EQ(0, list.Capacity());
}

TEST(StrListDeathTest, AbortsOnAnIndexOutsideTheList) {
  TStrList list;
  list.Add("a");
  EXPECT_DEATH(list[1], "wqstring:495: String TStrList::operator\\[\\]\\(int\\)");
  EXPECT_DEATH(list.Delete(-1), "wqstring:471: void TStrList::Delete\\(int\\)");
  list.Clear();
  EXPECT_DEATH(list.DeleteLast(), "wqstring:471");
}
