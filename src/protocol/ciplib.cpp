#include "protocol/ciplib.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif
#include <stddef.h>
#include <string.h>

#include <array>
#include <utility>

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

#ifdef __x86_64__
constexpr size_t kFold = 64;

/// Moves 16 bytes to the place of those that lie as far behind as the two factors were made for.
[[gnu::target("pclmul")]] __m128i Folded(__m128i bytes, __m128i factors) {
  return _mm_xor_si128(_mm_clmulepi64_si128(bytes, factors, 0x00),
                       _mm_clmulepi64_si128(bytes, factors, 0x11));
}

/// Four lanes of 16 bytes, which the processor's carry-less product folds over the rest 64 bytes at
/// a time, then into one: bytes that leave an empty register as all of them leave `value`.
/// @param count  a multiple of kFold, at least that
[[gnu::target("pclmul")]] void FoldBlocks(const char* p, size_t count, uint32_t value,
                                          char result[16]) {
  // Powers of x by the polynomial, in its bit order: of 64 bytes and of 16.
  const __m128i far = _mm_set_epi64x(0x01C6E41596, 0x0154442BD4);
  const __m128i near = _mm_set_epi64x(0x00CCAA009E, 0x01751997D0);
  const auto load = [](const char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  };
  __m128i lanes[4];
  for (size_t i = 0; i < 4; ++i) lanes[i] = load(p + 16 * i);
  lanes[0] = _mm_xor_si128(lanes[0], _mm_cvtsi32_si128(static_cast<int>(value)));
  for (const char* end = p + count; (p += kFold) < end;) {
    for (size_t i = 0; i < 4; ++i)
      lanes[i] = _mm_xor_si128(Folded(lanes[i], far), load(p + 16 * i));
  }
  __m128i all = lanes[0];
  for (size_t i = 1; i < 4; ++i) all = _mm_xor_si128(Folded(all, near), lanes[i]);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(result), all);
}
#endif

}  // namespace

#ifdef __x86_64__
bool TCRC32::Folds = __builtin_cpu_supports("pclmul");
#else
bool TCRC32::Folds = false;
#endif

void TCRC32::UpdateCRC(unsigned char c) {
  register_ = kTables[0][(register_ ^ c) & 0xFF] ^ (register_ >> 8);
}

void TCRC32::UpdateCRC(const char* p, int len) {
  if (p == nullptr) return;
  size_t left = len == -1 ? strlen(p) : len < 0 ? 0 : static_cast<size_t>(len);
#ifdef __x86_64__
  if (Folds && left >= kFold) {
    char rest[16];
    const size_t taken = left / kFold * kFold;
    FoldBlocks(p, taken, std::exchange(register_, 0), rest);
    UpdateCRC(rest, sizeof rest);
    p += taken;
    left -= taken;
  }
#endif
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
