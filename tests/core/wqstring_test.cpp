#include "core/wqstring.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/text.h"

TEST(StringTest, SizesItsBufferByTheStep) {
  for (const auto& [bytes, capacity] : {std::pair(1, 128), {127, 128}, {128, 256}, {256, 384}}) {
    EXPECT_EQ(capacity, ToString(std::string(static_cast<size_t>(bytes), 'x')).Capacity()) << bytes;
  }
  String s("0123456789");
  s.SetLength(128);
  EXPECT_EQ(256, s.Capacity());
  EXPECT_EQ(std::string("0123456789") + std::string(118, '\0'), ToStd(s));
  s = "";
  EXPECT_EQ(256, s.Capacity());
  s = String();
  EXPECT_EQ(nullptr, s.Data()) << "assigning an empty string releases the buffer";
}

TEST(StringTest, FixedStringCutsWhatDoesNotFit) {
  String s(8);
  s = "0123456789";
  s += "ab";
  s += 'c';
  EXPECT_EQ("01234567", s);
  EXPECT_EQ(136, s.SetZero().Capacity());
  String moved(std::move(s));
  moved += "89";
  EXPECT_EQ("0123456789", moved) << "a copy is growable";
}

TEST(StringTest, AppendsItsOwnBytesAcrossAGrowth) {
  String s(std::string(100, 'x').c_str());
  s += s;
  s.AddData(s.Data() + 50, 100);
  EXPECT_EQ(std::string(300, 'x'), ToStd(s));
}

TEST(StringTest, SearchesWithOptions) {
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

TEST(StringTest, ClampsWhatLiesOutside) {
  String s("abcd");
  EXPECT_EQ("bcd", s.Copy(2, 0x7fffffff));
  EXPECT_EQ("", s.Copy(5, 1));
  s.Delete(0, 1);
  s.Delete(5, 1);
  EXPECT_EQ("abcd", s);
  s.Delete(3, 10);
  EXPECT_EQ("ab", s);
  char buf[] = "-------";
  EXPECT_STREQ("abc", String("abcdef").StrCpy(buf, 4));
  EXPECT_STREQ("abc", String().StrCpy(buf, 4)) << "an empty string leaves the buffer untouched";
}

TEST(StringTest, TakesWords) {
  EXPECT_EQ("", String("a,,c").GetWord(2, ','));
  EXPECT_EQ("c", String("a,,c").GetWord(3, ','));
  EXPECT_EQ("a", String("a,,c").GetWord(0, ','));
  EXPECT_EQ("", String("a,b,").GetWord(3, ','));
  EXPECT_EQ("", String("a,b").GetWord(3, ','));
}

TEST(StringTest, TrimsBytesThatAreBlankAsSignedNumbers) {
  EXPECT_EQ("a\xE9z", String(" \t\xE9"
                             "a\xE9z\x80\n")
                          .Trim());
  EXPECT_EQ(128, String("   ").Trim().Capacity());
}

TEST(StringTest, CollapsesRunsButKeepsTwoAtTheStart) {
  EXPECT_EQ("a b", String("a   b").RemoveRepeats(' '));
  EXPECT_EQ("a ", String("a  ").RemoveRepeats(' '));
  EXPECT_EQ("  x", String("   x").RemoveRepeats(' '));
}

TEST(StringTest, ReplacesAllButARemainderThatIsOneOccurrence) {
  EXPECT_EQ("ab", String("ab").ReplaceAll("ab", "X", 1));
  EXPECT_EQ("Xc", String("abc").ReplaceAll("ab", "X", 1));
  EXPECT_EQ("xXab", String("xabab").ReplaceAll("ab", "X", 1));
  EXPECT_EQ("xX", String("xab").ReplaceAll("AB", "X", 0));
  EXPECT_EQ("abc", String("abc").ReplaceAll("", "X", 1));
}

TEST(StringTest, RecognisesNumbersWithAnAsymmetryForMinus) {
  EXPECT_TRUE(isdecimalnum("-1-2"));
  EXPECT_TRUE(isdecimalnum(""));
  EXPECT_FALSE(isdecimalnum("1.5"));
  EXPECT_FALSE(isdecimalnum("-12", 3));
}

TEST(StringTest, FindsBytesAsASimpleSearchDoes) {
  unsigned seed = 1;
  const auto next = [&seed](unsigned bound) {
    seed = seed * 1103515245 + 12345;
    return (seed >> 16) % bound;
  };
  for (int round = 0; round < 5000; ++round) {
    std::string buf(next(200), '\0'), pat(next(4), '\0');
    for (char& c : buf) c = "aAbB\xC9"[next(5)];
    for (char& c : pat) c = "aAbB\xE9"[next(5)];
    const int len = static_cast<int>(buf.size()), plen = static_cast<int>(pat.size());
    const auto expected = pat.empty() ? 0 : static_cast<int>(buf.find(pat) + 1);
    ASSERT_EQ(expected, mempos(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
    strlower(buf.data(), len);
    const std::string lower = ToStd(ToString(pat).LowerCase());
    const auto folded = pat.empty() ? 0 : static_cast<int>(buf.find(lower) + 1);
    strupper(buf.data(), static_cast<int>(next(200)) % (len + 1));
    ASSERT_EQ(folded, memposi(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
  }
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
}

TEST(StrListDeathTest, AbortsOnAnIndexOutsideTheList) {
  TStrList list;
  EXPECT_DEATH(list[0], "wqstring:495: String TStrList::operator\\[\\]\\(int\\)");
  EXPECT_DEATH(list.DeleteLast(), "wqstring:471: void TStrList::Delete\\(int\\)");
}
