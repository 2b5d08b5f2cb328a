// Address lists. The first four bytes are the peer's address, the rest is the list.
#include <arpa/inet.h>
#include <string.h>

#include "config/addrfilter.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < sizeof(unsigned)) return 0;
  unsigned address;
  memcpy(&address, data, sizeof address);
  const String list = ToString(data + sizeof address, size - sizeof address);

  char dotted[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &address, dotted, sizeof dotted);
  String error;
  String dottedError;
  Require(address == INADDR_NONE ||
              IPAllowed(address, list, error) == IPAllowed(dotted, list, dottedError),
          "both forms of an address are treated alike");

  String rest = list;
  unsigned first = 1;
  while (first != 0) {
    const int before = rest.Length();
    unsigned last = 0;
    getitem(rest, first, last, error);
    Require(first == 0 || rest.Length() < before, "a good item is taken off the list");
  }
  return 0;
}
