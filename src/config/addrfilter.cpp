#include "config/addrfilter.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

/// Reads the address that starts at `pos` and moves `pos` to what ends it. False with `err` set
/// when it is invalid.
bool ReadAddress(const String& list, int& pos, unsigned& address, String& err) {
  const int start = pos;
  while (pos <= list.Length() && list[pos] != ',' && list[pos] != '-') ++pos;
  const String text = list.Copy(start, pos - start);
  const in_addr_t read = inet_addr(text.CStr());
  if (read == INADDR_NONE) {
    err = String("Invalid IP address (") + text + ") specified";
    return false;
  }
  address = ntohl(read);
  return true;
}

/// Reads the item at `pos` and moves `pos` behind it; an invalid first address moves nothing.
void ReadItem(const String& list, int& pos, unsigned& first, unsigned& last, String& err) {
  first = last = 0;
  int at = pos;
  while (at <= list.Length() && (list[at] < '0' || list[at] > '9')) ++at;
  if (at > list.Length() || !ReadAddress(list, at, first, err)) return;
  if (at < list.Length() && list[at] == '-') ReadAddress(list, ++at, last, err);
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
  int legal = 0;
  while (legal < list.Length() && islistsetchar(list[legal + 1])) ++legal;
  const String work = list.Copy(1, legal);
  const unsigned wanted = ntohl(address);
  int allowed = 0;
  unsigned first;
  unsigned last;
  for (int pos = 1; allowed == 0;) {
    ReadItem(work, pos, first, last, err);
    if (first == 0) break;
    if (last == 0) last = first;
    allowed = wanted >= std::min(first, last) && wanted <= std::max(first, last) ? 1 : 0;
  }
  if (err.Empty() && legal < list.Length()) {
    err = String("Illegal character (") + list[legal + 1] + ") specified";
  }
  return allowed;
}

bool FilterAdmits(const char* dotted, const String& effectiveFilter) {
  return effectiveFilter.Pos(dotted) != 0;
}
