#include "config/addrfilter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "core/iplib.h"
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

TEST(AddrFilter, TakesItemsOffTheFrontUpToAFault) {
  String list = " 1.2.3.4-1.2.3.5-x9.9,1.2.3.999";
  String err;
  unsigned first, last;
  std::string seen;
  for (int i = 0; i < 3; ++i) {
    getitem(list, first, last, err);
    seen += ToStd(IP2String(htonl(first)) + "-" + IP2String(htonl(last)) + ">" + list + "|");
  }
  EXPECT_EQ(seen,
            "1.2.3.4-1.2.3.5>x9.9,1.2.3.999|9.0.0.9-0.0.0.0>1.2.3.999|0.0.0.0-0.0.0.0>1.2.3.999|");
  EXPECT_EQ(err, "Invalid IP address (1.2.3.999) specified");
}

TEST(AddrFilter, AdmitsPartsOfListedAddresses) {
  EXPECT_TRUE(FilterAdmits("10.0.0.1", "\r\n10.0.0.12\r\n"));
  EXPECT_FALSE(FilterAdmits("10.0.0.2", "\r\n10.0.0.12\r\n"));
}

}  // namespace
