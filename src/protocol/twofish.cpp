#include "protocol/twofish.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "core/bytes.h"

namespace {

using TByteTable = std::array<uint8_t, 256>;
using TWordTable = std::array<uint32_t, 256>;

bool Twofish_initialised = false;

/// The published permutations of four bits that q0 and q1 are made of.
constexpr uint8_t kNibbles[2][4][16] = {
    {{0x8, 0x1, 0x7, 0xD, 0x6, 0xF, 0x3, 0x2, 0x0, 0xB, 0x5, 0x9, 0xE, 0xC, 0xA, 0x4},
     {0xE, 0xC, 0xB, 0x8, 0x1, 0x2, 0x3, 0x5, 0xF, 0x4, 0xA, 0x6, 0x7, 0x0, 0x9, 0xD},
     {0xB, 0xA, 0x5, 0xE, 0x6, 0xD, 0x9, 0x0, 0xC, 0x8, 0xF, 0x3, 0x2, 0x4, 0x7, 0x1},
     {0xD, 0x7, 0xF, 0x4, 0x1, 0x2, 0x6, 0xE, 0x9, 0xB, 0x3, 0x0, 0x8, 0x5, 0xC, 0xA}},
    {{0x2, 0x8, 0xB, 0xD, 0xF, 0x7, 0x6, 0xE, 0x3, 0x1, 0x9, 0x4, 0x0, 0xA, 0xC, 0x5},
     {0x1, 0xE, 0x2, 0xB, 0x4, 0xC, 0x3, 0x7, 0x6, 0xD, 0xA, 0x5, 0xF, 0x9, 0x0, 0x8},
     {0x4, 0xC, 0x7, 0x5, 0x1, 0x6, 0x9, 0xA, 0x0, 0xE, 0xD, 0x8, 0x2, 0xB, 0x3, 0xF},
     {0xB, 0x9, 0x5, 0x1, 0xC, 0x3, 0xD, 0xE, 0x6, 0x4, 0x7, 0xF, 0x2, 0x0, 0x8, 0xA}}};

constexpr TByteTable Permutation(const uint8_t (&nibbles)[4][16]) {
  TByteTable table{};
  for (unsigned x = 0; x < 256; ++x) {
    unsigned a = x >> 4;
    unsigned b = x & 15;
    for (int step = 0; step < 4; step += 2) {
      const unsigned mixed = a ^ (b >> 1 | (b << 3 & 8)) ^ (a << 3 & 8);
      a = nibbles[step][a ^ b];
      b = nibbles[step + 1][mixed];
    }
    table[x] = static_cast<uint8_t>(b << 4 | a);
  }
  return table;
}
constexpr TByteTable kQ[2] = {Permutation(kNibbles[0]), Permutation(kNibbles[1])};

/// Which of the two each byte of a word passes: the last one, then backwards one for each word of
/// the key.
constexpr int kOrder[4][5] = {{1, 0, 0, 1, 1}, {0, 0, 1, 1, 0}, {1, 1, 0, 0, 0}, {0, 1, 1, 0, 1}};

constexpr unsigned kMdsPolynomial = 0x169;
constexpr uint8_t kMds[4][4] = {{0x01, 0xEF, 0x5B, 0x5B},
                                {0x5B, 0xEF, 0xEF, 0x01},
                                {0xEF, 0x5B, 0x01, 0xEF},
                                {0xEF, 0x01, 0xEF, 0x5B}};
constexpr unsigned kRsPolynomial = 0x14D;
constexpr uint8_t kRs[4][8] = {{0x01, 0xA4, 0x55, 0x87, 0x5A, 0x58, 0xDB, 0x9E},
                               {0xA4, 0x56, 0x82, 0xF3, 0x1E, 0xC6, 0x68, 0xE5},
                               {0x02, 0xA1, 0xFC, 0xC1, 0x47, 0xAE, 0x3D, 0x19},
                               {0xA4, 0x55, 0x87, 0x5A, 0x58, 0xDB, 0x9E, 0x03}};

/// Product in the field of 256 elements that the polynomial makes.
constexpr unsigned Product(unsigned a, unsigned b, unsigned polynomial) {
  unsigned product = 0;
  for (; b != 0; b >>= 1) {
    if ((b & 1) != 0) product ^= a;
    a = a << 1 ^ ((a & 0x80) != 0 ? polynomial : 0);
  }
  return product;
}

/// For each column of the matrix, what a byte there adds to the product.
template <size_t kColumns>
constexpr std::array<TWordTable, kColumns> ColumnTables(const uint8_t (&matrix)[4][kColumns],
                                                        unsigned polynomial) {
  std::array<TWordTable, kColumns> tables{};
  for (size_t column = 0; column < kColumns; ++column) {
    for (unsigned x = 0; x < 256; ++x) {
      for (size_t row = 0; row < 4; ++row) {
        tables[column][x] |= Product(matrix[row][column], x, polynomial) << 8 * row;
      }
    }
  }
  return tables;
}
constexpr auto kRsTables = ColumnTables(kRs, kRsPolynomial);

/// The last permutation of each byte and its column of the matrix in one.
constexpr std::array<TWordTable, 4> LastStep() {
  const auto plain = ColumnTables(kMds, kMdsPolynomial);
  std::array<TWordTable, 4> tables{};
  for (size_t column = 0; column < 4; ++column) {
    for (size_t x = 0; x < 256; ++x) tables[column][x] = plain[column][kQ[kOrder[column][0]][x]];
  }
  return tables;
}
constexpr auto kLastStep = LastStep();

constexpr uint8_t ByteOf(uint32_t word, size_t i) { return static_cast<uint8_t>(word >> 8 * i); }

uint32_t LoadWord(const unsigned char* bytes) {
  uint32_t word;
  memcpy(&word, bytes, sizeof word);
  return word;
}

/// The permutations and words of a key that a byte of one column passes.
template <size_t kColumn, size_t kCount>
struct TColumn {
  explicit TColumn(const uint32_t* words) {
    for (size_t k = 0; k < kCount; ++k) bytes[k] = ByteOf(words[k], kColumn);
  }
  uint32_t Of(uint32_t x) const { return Passed<kCount>(x); }
  template <size_t kLeft>
  uint32_t Passed(uint32_t x) const {
    if constexpr (kLeft == 0) {
      return kLastStep[kColumn][x];
    } else {
      return Passed<kLeft - 1>(kQ[kOrder[kColumn][kLeft]][x] ^ bytes[kLeft - 1]);
    }
  }
  void Fill(uint32_t (&box)[256]) const {
    for (uint32_t x = 0; x < 256; ++x) box[x] = Of(x);
  }

  uint32_t bytes[kCount];
};

/// Of a word that consists of four bytes x.
template <size_t kCount>
uint32_t Mixed(uint32_t x, const uint32_t* words) {
  return TColumn<0, kCount>(words).Of(x) ^ TColumn<1, kCount>(words).Of(x) ^
         TColumn<2, kCount>(words).Of(x) ^ TColumn<3, kCount>(words).Of(x);
}

/// @param bytes  8 for each of the words
template <size_t kCount>
void FillKey(const unsigned char* bytes, Twofish_key& key) {
  uint32_t words[3][kCount];  // even and odd ones of the key, those for the boxes
  for (size_t k = 0; k < kCount; ++k, bytes += 8) {
    words[0][k] = LoadWord(bytes);
    words[1][k] = LoadWord(bytes + 4);
    uint32_t sum = 0;
    for (size_t i = 0; i < 8; ++i) sum ^= kRsTables[i][bytes[i]];
    words[2][kCount - 1 - k] = sum;
  }
  for (uint32_t i = 0; i < 40; i += 2) {
    const uint32_t a = Mixed<kCount>(i, words[0]);
    const uint32_t b = std::rotl(Mixed<kCount>(i + 1, words[1]), 8);
    key.words[i] = a + b;
    key.words[i + 1] = std::rotl(a + 2 * b, 9);
  }
  TColumn<0, kCount>(words[2]).Fill(key.boxes[0]);
  TColumn<1, kCount>(words[2]).Fill(key.boxes[1]);
  TColumn<2, kCount>(words[2]).Fill(key.boxes[2]);
  TColumn<3, kCount>(words[2]).Fill(key.boxes[3]);
  explicit_bzero(words, sizeof words);
}

/// The sum of what the bytes of a word contribute.
uint32_t Sum(const Twofish_key& key, uint32_t x) {
  return key.boxes[0][ByteOf(x, 0)] ^ key.boxes[1][ByteOf(x, 1)] ^ key.boxes[2][ByteOf(x, 2)] ^
         key.boxes[3][ByteOf(x, 3)];
}

/// The same for the word turned left by 8 bits.
uint32_t TurnedSum(const Twofish_key& key, uint32_t x) {
  return key.boxes[1][ByteOf(x, 0)] ^ key.boxes[2][ByteOf(x, 1)] ^ key.boxes[3][ByteOf(x, 2)] ^
         key.boxes[0][ByteOf(x, 3)];
}

/// The four words of a block between its bytes.
struct TBlock {
  TBlock(const unsigned char* in, const uint32_t* whitening) {
    for (size_t i = 0; i < 4; ++i) word[i] = LoadWord(in + 4 * i) ^ whitening[i];
  }
  /// The halves change places, as the last round does not swap them.
  void Store(unsigned char* out, const uint32_t* whitening) const {
    for (size_t i = 0; i < 4; ++i) {
      const uint32_t last = word[(i + 2) % 4] ^ whitening[i];
      memcpy(out + 4 * i, &last, sizeof last);
    }
  }
  /// A round of each direction: changes the words kTo and kTo + 1 by the other two.
  template <size_t kTo>
  void Forward(const Twofish_key& key, const uint32_t* added) {
    const uint32_t a = Sum(key, word[(kTo + 2) % 4]);
    const uint32_t b = TurnedSum(key, word[(kTo + 3) % 4]);
    word[kTo] = std::rotr(word[kTo] ^ (a + b + added[0]), 1);
    word[kTo + 1] = std::rotl(word[kTo + 1], 1) ^ (a + 2 * b + added[1]);
  }
  template <size_t kTo>
  void Backward(const Twofish_key& key, const uint32_t* added) {
    const uint32_t a = Sum(key, word[(kTo + 2) % 4]);
    const uint32_t b = TurnedSum(key, word[(kTo + 3) % 4]);
    word[kTo] = std::rotl(word[kTo], 1) ^ (a + b + added[0]);
    word[kTo + 1] = std::rotr(word[kTo + 1] ^ (a + 2 * b + added[1]), 1);
  }

  uint32_t word[4];
};

// The words of a key: added in front of the rounds, behind them, and two in each of the sixteen.
constexpr size_t kInFront = 0;
constexpr size_t kBehind = 4;
constexpr size_t kRounds = 8;
constexpr size_t kEnd = 40;

constexpr int kSideBySide = 4;

/// See Twofish_first_bytes; so many side by side, which hides what each step waits for.
template <size_t... i>
void FirstBytes(const Twofish_key& key, const unsigned char* in, unsigned char* out,
                std::index_sequence<i...>) {
  TBlock side[] = {TBlock(in + i, key.words + kInFront)...};
  const uint32_t* added = key.words + kRounds;
  for (; added < key.words + kEnd - 4; added += 4) {
    (side[i].template Forward<2>(key, added), ...);
    (side[i].template Forward<0>(key, added + 2), ...);
  }
  (side[i].template Forward<2>(key, added), ...);
  ((out[i] = ByteOf(side[i].word[2] ^ key.words[kBehind], 0)), ...);
}

/// Known answers published with the cipher: one block, and the last ciphertext of its iterated
/// test.
constexpr struct {
  int keySize;
  const char* key;
  const char* plain;
  const char* cipher;
  const char* sequenceEnd;
} kVectors[] = {
    {16, "\x9f\x58\x9f\x5c\xf6\x12\x2c\x32\xb6\xbf\xec\x2f\x2a\xe8\xc3\x5a",
     "\xd4\x91\xdb\x16\xe7\xb1\xc3\x9e\x86\xcb\x08\x6b\x78\x9f\x54\x19",
     "\x01\x9f\x98\x09\xde\x17\x11\x85\x8f\xaa\xc3\xa3\xba\x20\xfb\xc3",
     "\x5d\x9d\x4e\xef\xfa\x91\x51\x57\x55\x24\xf1\x15\x81\x5a\x12\xe0"},
    {24,
     "\x88\xb2\xb2\x70\x6b\x10\x5e\x36\xb4\x46\xbb\x6d\x73\x1a\x1e\x88"
     "\xef\xa7\x1f\x78\x89\x65\xbd\x44",
     "\x39\xda\x69\xd6\xba\x49\x97\xd5\x85\xb6\xdc\x07\x3c\xa3\x41\xb2",
     "\x18\x2b\x02\xd8\x14\x97\xea\x45\xf9\xda\xac\xdc\x29\x19\x3a\x65",
     "\xe7\x54\x49\x21\x2b\xee\xf9\xf4\xa3\x90\xbd\x86\x0a\x64\x09\x41"},
    {32,
     "\xd4\x3b\xb7\x55\x6e\xa3\x2e\x46\xf2\xa2\x82\xb7\xd4\x5b\x4e\x0d"
     "\x57\xff\x73\x9d\x4d\xc9\x2c\x1b\xd7\xfc\x01\x70\x0c\xc8\x21\x6f",
     "\x90\xaf\xe9\x1b\xb2\x88\x54\x4f\x2c\x32\xdc\x23\x9b\x26\x35\xe6",
     "\x6c\xb4\x56\x1c\x40\xbf\x0a\x97\x05\x93\x1c\xb6\xd4\x08\xe7\xfa",
     "\x37\xfe\x26\xff\x1c\xf6\x61\x75\xf5\xdd\xf4\xc3\x3b\x97\xa2\x05"},
};

/// The key sizes are 16, 24 and 32.
int PaddedSize(int len) { return std::max(16, (len + 7) / 8 * 8); }

void Require(bool holds, const char* failure) {
  if (!holds) Twofish_fatal(failure);
}

bool IsBlock(const unsigned char* block, const void* expected) {
  return memcmp(block, expected, kTwofishBlock) == 0;
}

/// The length fields and the checksum move words as the cipher's standard does, lowest byte first.
void test_platform() {
  constexpr unsigned char kBytes[] = {1, 2, 3, 4};
  constexpr uint32_t kWord = 0x04030201u;
  Require(LoadWord(kBytes) == kWord, "Twofish code: GET32 not implemented properly");
  Require(memcmp(&kWord, kBytes, sizeof kWord) == 0,
          "Twofish code: PUT32 not implemented properly");
  Require(std::rotl(kWord, 8) == 0x03020104u && std::rotr(kWord, 8) == 0x01040302u,
          "Twofish ROL or ROR not properly defined.");
  Require(ByteOf(kWord, 2) == 3, "Twofish code: SELECT_BYTE not implemented properly");
}

void test_vectors(const TTwofishSteps& steps) {
  for (const auto& v : kVectors) {
    Twofish_key key;
    steps.prepare(Bytes(v.key), v.keySize, &key);
    unsigned char block[kTwofishBlock];
    steps.encrypt(&key, Bytes(v.plain), block);
    Require(IsBlock(block, v.cipher), "Twofish encryption failure");
    steps.decrypt(&key, block, block);
    Require(IsBlock(block, v.plain), "Twofish decryption failure");
  }
}

/// Each ciphertext is the next plaintext, and each plaintext moves into the front of the next key.
void test_sequences(const TTwofishSteps& steps) {
  for (const auto& v : kVectors) {
    unsigned char keyBytes[kTwofishMaxKey] = {};
    unsigned char plain[kTwofishBlock] = {};
    for (int round = 0; round < 49; ++round) {
      Twofish_key key;
      steps.prepare(keyBytes, v.keySize, &key);
      unsigned char cipher[kTwofishBlock];
      unsigned char back[kTwofishBlock];
      steps.encrypt(&key, plain, cipher);
      steps.decrypt(&key, cipher, back);
      Require(IsBlock(back, plain), "Twofish decryption failure in sequence");
      memmove(keyBytes + kTwofishBlock, keyBytes, kTwofishMaxKey - kTwofishBlock);
      memcpy(keyBytes, plain, kTwofishBlock);
      memcpy(plain, cipher, kTwofishBlock);
    }
    Require(IsBlock(plain, v.sequenceEnd), "Twofish encryption failure in sequence");
  }
}

/// The bytes behind a key must not matter: the longer keys' bytes lie there.
void test_odd_sized_keys(const TTwofishSteps& steps) {
  unsigned char bytes[kTwofishMaxKey];
  unsigned char padded[kTwofishMaxKey] = {};
  for (int i = 0; i < kTwofishMaxKey; ++i) bytes[i] = static_cast<unsigned char>(i + 1);
  for (int len = 0; len <= kTwofishMaxKey; ++len) {
    memcpy(padded, bytes, static_cast<size_t>(len));
    Twofish_key odd;
    Twofish_key whole;
    steps.prepare(bytes, len, &odd);
    steps.prepare(padded, PaddedSize(len), &whole);
    Require(memcmp(&odd, &whole, sizeof odd) == 0, "Odd sized keys do not expand properly");
  }
}

void self_test(const TTwofishSteps& steps) {
  test_vectors(steps);
  test_sequences(steps);
  test_odd_sized_keys(steps);
}

}  // namespace

void Twofish_initialise(const TTwofishSteps& steps) {
  test_platform();
  Twofish_initialised = true;
  self_test(steps);
}

void Twofish_prepare_key(const unsigned char* key, int len, Twofish_key* out) {
  if (!Twofish_initialised) Twofish_fatal("Twofish implementation was not initialised.");
  if (len < 0 || len > kTwofishMaxKey) Twofish_fatal("Twofish_prepare_key: illegal key length");
  unsigned char padded[kTwofishMaxKey] = {};
  if (len > 0) memcpy(padded, key, static_cast<size_t>(len));
  const int words = PaddedSize(len) / 8;
  if (words == 2) FillKey<2>(padded, *out);
  if (words == 3) FillKey<3>(padded, *out);
  if (words == 4) FillKey<4>(padded, *out);
  explicit_bzero(padded, sizeof padded);
}

void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  TBlock block(in, key->words + kInFront);
  for (size_t at = kRounds; at < kEnd; at += 4) {
    block.Forward<2>(*key, key->words + at);
    block.Forward<0>(*key, key->words + at + 2);
  }
  block.Store(out, key->words + kBehind);
}

void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  TBlock block(in, key->words + kBehind);
  for (size_t at = kEnd; at > kRounds; at -= 4) {
    block.Backward<2>(*key, key->words + at - 2);
    block.Backward<0>(*key, key->words + at - 4);
  }
  block.Store(out, key->words + kInFront);
}

void Twofish_first_bytes(const Twofish_key& key, const unsigned char* in, unsigned char* out,
                         int count) {
  int done = 0;
  for (; count - done >= kSideBySide; done += kSideBySide) {
    FirstBytes(key, in + done, out + done, std::make_index_sequence<kSideBySide>());
  }
  for (; done < count; ++done) FirstBytes(key, in + done, out + done, std::index_sequence<0>());
}

void Twofish_fatal(const char* msg) {
  fprintf(stderr, "\nTwofish fatal error: %s\nProcess terminated\n", msg);
  exit(3);
}
