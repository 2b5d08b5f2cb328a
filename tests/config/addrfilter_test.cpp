#include "config/addrfilter.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "core/iplib.h"
#include "support/text.h"

namespace {

TEST(AddrFilter, MatchesAddressesAndRanges) {
  const struct {
    int allowed;
    std::vector<const char*> lists;
    const char* err = "";
  } cases[] = {
      {1,
       {"10.0.0.5,", "9.9.9.9,,-.10.0.0.5", "10.0.0.5-", "10.0.0.5-10.0.0.9", "9.0.0.0-201.0.0.0"}},
      {1, {"10.0.0.9-10.0.0.1", "10.0.0.9-10.0.0.5", "10.0.0.1-10.0.0.5"}},
      {0, {"", "10.0.0.50,110.0.0.5", "10.0.0.4-", "10.0.0.9-10.0.0.6", "0.0.0.0,10.0.0.5"}},
      {0,
       {"10.0.0.999,10.0.0.5", "10.0.0.999-10.0.0.9"},
       "Invalid IP address (10.0.0.999) specified"},
      {0, {"255.255.255.255,10.0.0.5"}, "Invalid IP address (255.255.255.255) specified"},
      {1, {"10.0.0.5-10.0.0.999"}, "Invalid IP address (10.0.0.999) specified"},
      {1, {"9.9.9.9-,10.0.0.5"}, "Invalid IP address () specified"},
      {1, {"10.0.0.5 10.0.0.6"}, "Illegal character ( ) specified"},
      {0, {"10.0.0.1 10.0.0.5"}, "Illegal character ( ) specified"},
  };
  String err;
  for (const auto& c : cases) {
    for (const char* list : c.lists) {
      EXPECT_EQ(IPAllowed("10.0.0.5", list, err), c.allowed) << list;
      EXPECT_EQ(ToStd(err), c.err) << list;
    }
  }
  EXPECT_EQ(IPAllowed("200.0.0.1", "9.0.0.0-201.0.0.0", err), 1);
  EXPECT_EQ(IPAllowed("255.255.255.255", "0.0.0.1-255.255.255.254", err), 0);
  EXPECT_TRUE(FilterAdmits("10.0.0.1", "\r\n10.0.0.12\r\n")) << "deliberately a part of another";
  EXPECT_FALSE(FilterAdmits("10.0.0.2", "\r\n10.0.0.12\r\n"));
}

TEST(AddrFilter, TakesItemsOffTheFrontUpToAFault) {
  String list = " 1.2.3.4-1.2.3.5-x9.9,1.2.3.999";
  String err, seen;
  unsigned first, last;
  for (int i = 0; i < 3; ++i) {
    getitem(list, first, last, err);
    seen += IP2String(htonl(first)) + "-" + IP2String(htonl(last)) + ">" + list + "|";
  }
  EXPECT_EQ(seen,
            "1.2.3.4-1.2.3.5>x9.9,1.2.3.999|9.0.0.9-0.0.0.0>1.2.3.999|0.0.0.0-0.0.0.0>1.2.3.999|");
  EXPECT_EQ(err, "Invalid IP address (1.2.3.999) specified");
}

}  // namespace
