#include "checks/process/arguments.h"

#include <string.h>

namespace {

struct TPiece {
  const char* bytes;
  size_t length;
  const char* next;  ///< where the rest of the line begins
};

TPiece NextArgument(const char* line) {
  const bool quoted = *line == '"' || *line == '\'';
  const char stop[] = {*line, 0};
  const char* begin = quoted ? line + 1 : line;
  const size_t length = strcspn(begin, quoted ? stop : " \t");
  const char* end = begin + length;
  return {begin, length, *end == 0 ? end : end + 1};
}

}  // namespace

TArgumentBlock::TArgumentBlock(const char* cmdline) {
  const char* rest = cmdline == nullptr ? "" : cmdline;
  size_t used = 0;
  while (count_ < kMaxArguments) {
    rest += strspn(rest, " ");
    if (*rest == 0) return;
    const TPiece piece = NextArgument(rest);
    if (piece.length + 1 > kBlockBytes - used) return;
    memcpy(bytes_ + used, piece.bytes, piece.length);
    argv_[count_++] = bytes_ + used;
    used += piece.length + 1;
    rest = piece.next;
  }
}
