#include "config/addrfilter.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

/// Reads the address that starts at `pos` and moves `pos` to what ends it. 0 with `err` set when
/// it is invalid.
unsigned ReadAddress(const String& list, int& pos, String& err) {
  const int start = pos;
  while (pos <= list.Length() && list[pos] != ',' && list[pos] != '-') ++pos;
  const String text = list.Copy(start, pos - start);
  const in_addr_t address = inet_addr(text.CStr());
  if (address != INADDR_NONE) return ntohl(address);
  err = String("Invalid IP address (") + text + ") specified";
  return 0;
}

/// Reads the item at `pos` and moves `pos` behind it; an invalid first address moves nothing.
void ReadItem(const String& list, int& pos, unsigned& first, unsigned& last, String& err) {
  first = last = 0;
  int at = pos;
  while (at <= list.Length() && (list[at] < '0' || list[at] > '9')) ++at;
  if (at > list.Length()) return;
  String fault;
  first = ReadAddress(list, at, fault);
  if (!fault.Empty()) {
    err = fault;
    return;
  }
  if (at < list.Length() && list[at] == '-') last = ReadAddress(list, ++at, err);
  pos = at + 1;
}

}  // namespace

int islistsetchar(char c) {
  return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == ',' ? 1 : 0;
}

void getitem(String& list, unsigned& first, unsigned& last, String& err) {
  int pos = 1;
  ReadItem(list, pos, first, last, err);
  list.Delete(1, pos - 1);
}

int IPAllowed(const char* address, const String& list, String& err) {
  const in_addr_t value = inet_addr(address);
  return value == INADDR_NONE ? 0 : IPAllowed(value, list, err);
}

int IPAllowed(unsigned address, const String& list, String& err) {
  err = "";
  const unsigned wanted = ntohl(address);
  const char* bytes = list.CStr();
  const char* end = bytes + list.Length();
  const char* illegal = std::find_if_not(bytes, end, islistsetchar);
  const String work(bytes, static_cast<int>(illegal - bytes));
  int allowed = 0;
  unsigned first;
  unsigned last;
  for (int pos = 1; allowed == 0;) {
    ReadItem(work, pos, first, last, err);
    if (first == 0) break;
    if (last == 0) last = first;
    allowed = wanted >= std::min(first, last) && wanted <= std::max(first, last) ? 1 : 0;
  }
  if (err.Empty() && illegal != end) {
    err = String("Illegal character (") + *illegal + ") specified";
  }
  return allowed;
}

bool FilterAdmits(const char* dotted, const String& effectiveFilter) {
  return effectiveFilter.Pos(dotted) != 0;
}
