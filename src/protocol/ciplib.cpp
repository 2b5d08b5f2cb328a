#include "protocol/ciplib.h"

#include <stddef.h>
#include <string.h>

#include <array>

#include "core/assertfail.h"

namespace {

/// Bytes taken at a time; one table for the position of each.
constexpr size_t kSlices = 16;
using TTables = std::array<std::array<uint32_t, 256>, kSlices>;

constexpr TTables MakeTables() {
  TTables tables{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320u : 0);
    tables[0][i] = value;
  }
  for (size_t slice = 1; slice < kSlices; ++slice) {
    for (size_t i = 0; i < 256; ++i) {
      const uint32_t value = tables[slice - 1][i];
      tables[slice][i] = (value >> 8) ^ tables[0][value & 0xFF];
    }
  }
  return tables;
}

constexpr TTables kTables = MakeTables();

/// What the four bytes of a word add to the register, the last of them `behind` bytes before the
/// end of the slice.
uint32_t WordSum(uint32_t word, size_t behind) {
  return (kTables[behind + 3][word & 0xFF] ^ kTables[behind + 2][(word >> 8) & 0xFF]) ^
         (kTables[behind + 1][(word >> 16) & 0xFF] ^ kTables[behind][word >> 24]);
}

}  // namespace

void TCRC32::UpdateCRC(unsigned char c) {
  register_ = kTables[0][(register_ ^ c) & 0xFF] ^ (register_ >> 8);
}

void TCRC32::UpdateCRC(const char* p, int len) {
  if (p == nullptr) return;
  size_t left = len == -1 ? strlen(p) : len < 0 ? 0 : static_cast<size_t>(len);
  for (; left >= kSlices; left -= kSlices, p += kSlices) {
    uint32_t words[4];
    memcpy(words, p, kSlices);
    // The register comes in last, so that the rest of the next slice need not wait for this one.
    const uint32_t rest = WordSum(words[1], 8) ^ WordSum(words[2], 4) ^ WordSum(words[3], 0);
    register_ = rest ^ WordSum(words[0] ^ register_, 12);
  }
  for (; left > 0; --left) UpdateCRC(static_cast<unsigned char>(*p++));
}

uint32_t TCRC32::GetBlockCRC(const char* p, int len) {
  InitCRC();
  UpdateCRC(p, len);
  return GetCRC();
}

void THash_SHA::Init() {
  Burn();
  sha1_init(&context_);
  initialized_ = true;
}

void THash_SHA::Burn() {
  explicit_bzero(&context_, sizeof context_);
  explicit_bzero(digest_, sizeof digest_);
  initialized_ = false;
}

void THash_SHA::Update(const char* p, long len) {
  if (!initialized_) Init();
  if (len <= 0) return;
  sha1_update(&context_, static_cast<size_t>(len), reinterpret_cast<const uint8_t*>(p));
}

void THash_SHA::Final() {
  if (!initialized_) __assert_fail("fInitialized", "ciplib", 212, "void THash_SHA::Final()");
  sha1_digest(&context_, sizeof digest_, digest_);
  initialized_ = false;
}

const char* THash_SHA::GetHash(const char* p, long len) {
  if (p != nullptr) {
    Init();
    Update(p, len);
    Final();
  } else if (initialized_) {
    __assert_fail("!fInitialized", "ciplib", 245,
                  "const char* THash_SHA::GetHash(const char*, long int)");
  }
  return reinterpret_cast<const char*>(digest_);
}
