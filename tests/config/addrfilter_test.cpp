#include "config/addrfilter.h"

#include "core/iplib.h"
#include "support/scopes.h"

TEST(AddrFilter, MatchesAddressesAndRanges) {
  const std::pair<const char*, std::vector<const char*>> cases[] = {
      {"1", {"10.0.0.5,", "9.9.9.9,,-.10.0.0.5", "10.0.0.5-", "9.0.0.0-201.0.0.0"}},
      {"1", {"10.0.0.5-10.0.0.9", "10.0.0.9-10.0.0.5", "10.0.0.9-10.0.0.1", "10.0.0.1-10.0.0.5"}},
      {"0", {"", "10.0.0.50,110.0.0.5", "10.0.0.4-", "10.0.0.9-10.0.0.6", "0.0.0.0,10.0.0.5"}},
      {"0Invalid IP address (10.0.0.999) specified", {"10.0.0.999,10.0.0.5", "10.0.0.999-10.1"}},
      {"0Invalid IP address (255.255.255.255) specified", {"255.255.255.255,10.0.0.5"}},
      {"1Invalid IP address (10.0.0.999) specified", {"10.0.0.5-10.0.0.999"}},
      {"1Invalid IP address () specified", {"9.9.9.9-,10.0.0.5"}},
      {"1Illegal character ( ) specified", {"10.0.0.5 10.0.0.6"}},
      {"0Illegal character ( ) specified", {"10.0.0.1 10.0.0.5"}}};
  String err = "of a former call";
  for (const auto& [verdict, lists] : cases) {
    for (const char* list : lists) {
      const int allowed = IPAllowed("10.0.0.5", list, err);
      EXPECT_EQ(std::to_string(allowed) + ToStd(err), verdict) << list;
    }
  }
  EXPECT_EQ(IPAllowed("255.255.255.255", "0.0.0.1-255.255.255.254", err), 0);
  EXPECT_TRUE(FilterAdmits("10.0.0.1", "\r\n10.0.0.12\r\n")) << "deliberately a part of another";
  EXPECT_FALSE(FilterAdmits("10.0.0.2", "\r\n10.0.0.12\r\n"));
  for (const auto& [list, expected] : {std::pair(" 1.2.3.4-1.2.3.5-x9.9", "1.2.3.4-1.2.3.5>x9.9"),
                                       {"1.2.3.256,9.9", "0.0.0.0-0.0.0.0>1.2.3.256,9.9"}}) {
    String rest = list;
    unsigned a, b;
    getitem(rest, a, b, err);
    EXPECT_EQ(IP2String(htonl(a)) + "-" + IP2String(htonl(b)) + ">" + rest, expected);
  }
}
