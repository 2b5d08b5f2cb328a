#include "config/addrfilter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "support/text.h"

namespace {

TEST(AddrFilter, MatchesAddressesAndRanges) {
  const struct {
    const char *address, *list;
    int allowed;
    const char* err;
  } cases[] = {
      {"1.2.3.4", "", 0, ""},
      {"1.2.3.4", "1.2.3.4,", 1, ""},
      {"1.2.3.4", "1.2.3.40,11.2.3.4", 0, ""},
      {"1.2.3.4", "9.9.9.9,,-.1.2.3.4", 1, ""},
      {"10.0.0.5", "10.0.0.1-10.0.0.9", 1, ""},
      {"10.0.0.9", "10.0.0.9-10.0.0.1", 1, ""},
      {"10.0.0.1", "10.0.0.9-10.0.0.1", 1, ""},
      {"10.0.0.0", "10.0.0.9-10.0.0.1", 0, ""},
      {"200.0.0.1", "9.0.0.0-201.0.0.0", 1, ""},
      {"1.2.3.4", "1.2.3.4-", 1, ""},
      {"1.2.3.5", "1.2.3.4-", 0, ""},
      {"1.2.3.4", "1.2.3.999,1.2.3.4", 0, "Invalid IP address (1.2.3.999) specified"},
      {"1.2.3.4", "255.255.255.255,1.2.3.4", 0, "Invalid IP address (255.255.255.255) specified"},
      {"1.2.3.4", "1.2.3.4-1.2.3.999", 1, "Invalid IP address (1.2.3.999) specified"},
      {"1.2.3.4", "9.9.9.9-,1.2.3.4", 1, "Invalid IP address () specified"},
      {"1.2.3.4", "0.0.0.0,1.2.3.4", 0, ""},
      {"10.0.0.1", "10.0.0.1 10.0.0.2", 1, "Illegal character ( ) specified"},
      {"10.0.0.2", "10.0.0.1 10.0.0.2", 0, "Illegal character ( ) specified"},
      {"127.0.0.1", "127.0.0.1\r\n", 1, "Illegal character (\r) specified"},
      {"255.255.255.255", "0.0.0.1-255.255.255.254", 0, ""},
      {"host", "1.2.3.4", 0, ""},
  };
  for (const auto& c : cases) {
    String err;
    EXPECT_EQ(IPAllowed(c.address, c.list, err), c.allowed) << c.address << " in " << c.list;
    EXPECT_EQ(ToStd(err), c.err);
  }
}

TEST(AddrFilter, TakesItemsOffTheFront) {
  String list = " 1.2.3.4-1.2.3.5-6.7.8.9,x9.9,1.2.3.999";
  const struct {
    unsigned first, last;
    const char *rest, *err;
  } steps[] = {
      {0x01020304, 0x01020305, "6.7.8.9,x9.9,1.2.3.999", ""},
      {0x06070809, 0, "x9.9,1.2.3.999", ""},
      {0x09000009, 0, "1.2.3.999", ""},
      {0, 0, "1.2.3.999", "Invalid IP address (1.2.3.999) specified"},
  };
  for (const auto& step : steps) {
    unsigned first = 1, last = 1;
    String err;
    getitem(list, first, last, err);
    EXPECT_EQ(first, step.first);
    EXPECT_EQ(last, step.last);
    EXPECT_EQ(ToStd(list), step.rest);
    EXPECT_EQ(ToStd(err), step.err);
  }
}

TEST(AddrFilter, AdmitsPartsOfListedAddresses) {
  EXPECT_TRUE(FilterAdmits("10.0.0.1", "\r\n10.0.0.12\r\n"));
  EXPECT_FALSE(FilterAdmits("10.0.0.2", "\r\n10.0.0.12\r\n"));
}

}  // namespace
