#include "protocol/twofish.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>

#include "core/bytes.h"

namespace {

constexpr size_t kBlock = TWOFISH_BLOCK_SIZE;
constexpr int kMaxKey = TWOFISH_MAX_KEY_SIZE;

bool Twofish_initialised = false;

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
int PaddedSize(int len) { return std::max(TWOFISH128_KEY_SIZE, (len + 7) / 8 * 8); }

void Require(bool holds, const char* failure) {
  if (!holds) Twofish_fatal(failure);
}

bool IsBlock(const uint8_t* block, const void* expected) {
  return memcmp(block, expected, kBlock) == 0;
}

/// The length fields and the checksum move words as the cipher's standard does, lowest byte first.
/// The cipher's own primitives lie inside the library, where only the known answers reach them.
void test_platform() {
  constexpr std::array<uint8_t, 4> kBytes = {1, 2, 3, 4};
  constexpr uint32_t kWord = 0x04030201u;
  Require(std::bit_cast<uint32_t>(kBytes) == kWord, "Twofish code: GET32 not implemented properly");
  Require(std::bit_cast<std::array<uint8_t, 4>>(kWord) == kBytes,
          "Twofish code: PUT32 not implemented properly");
}

void test_vectors() {
  for (const auto& v : kVectors) {
    Twofish_key key;
    Twofish_prepare_key(Bytes(v.key), v.keySize, &key);
    uint8_t block[kBlock];
    Twofish_encrypt(&key, Bytes(v.plain), block);
    Require(IsBlock(block, v.cipher), "Twofish encryption failure");
    Twofish_decrypt(&key, block, block);
    Require(IsBlock(block, v.plain), "Twofish decryption failure");
  }
}

/// Each ciphertext is the next plaintext, and each plaintext moves into the front of the next key.
void test_sequences() {
  for (const auto& v : kVectors) {
    uint8_t keyBytes[kMaxKey] = {};
    uint8_t plain[kBlock] = {};
    for (int round = 0; round < 49; ++round) {
      Twofish_key key;
      Twofish_prepare_key(keyBytes, v.keySize, &key);
      uint8_t cipher[kBlock];
      uint8_t back[kBlock];
      Twofish_encrypt(&key, plain, cipher);
      Twofish_decrypt(&key, cipher, back);
      Require(IsBlock(back, plain), "Twofish decryption failure in sequence");
      memmove(keyBytes + kBlock, keyBytes, kMaxKey - kBlock);
      memcpy(keyBytes, plain, kBlock);
      memcpy(plain, cipher, kBlock);
    }
    Require(IsBlock(plain, v.sequenceEnd), "Twofish encryption failure in sequence");
  }
}

/// The bytes behind a key must not matter: the longer keys' bytes lie there.
void test_odd_sized_keys() {
  uint8_t bytes[kMaxKey];
  uint8_t padded[kMaxKey] = {};
  for (int i = 0; i < kMaxKey; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  for (int len = 0; len <= kMaxKey; ++len) {
    memcpy(padded, bytes, static_cast<size_t>(len));
    Twofish_key odd;
    Twofish_key whole;
    Twofish_prepare_key(bytes, len, &odd);
    Twofish_prepare_key(padded, PaddedSize(len), &whole);
    Require(memcmp(&odd, &whole, sizeof odd) == 0, "Odd sized keys do not expand properly");
  }
}

void self_test() {
  test_vectors();
  test_sequences();
  test_odd_sized_keys();
}

}  // namespace

void Twofish_initialise() {
  test_platform();
  Twofish_initialised = true;
  self_test();
}

void Twofish_prepare_key(const unsigned char* key, int len, Twofish_key* out) {
  if (!Twofish_initialised) Twofish_fatal("Twofish implementation was not initialised.");
  if (len < 0 || len > kMaxKey) Twofish_fatal("Twofish_prepare_key: illegal key length");
  uint8_t padded[kMaxKey] = {};
  if (len > 0) memcpy(padded, key, static_cast<size_t>(len));
  twofish_set_key(&out->context, static_cast<size_t>(PaddedSize(len)), padded);
  explicit_bzero(padded, sizeof padded);
}

void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  twofish_encrypt(&key->context, kBlock, out, in);
}

void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  twofish_decrypt(&key->context, kBlock, out, in);
}

void Twofish_fatal(const char* msg) {
  fprintf(stderr, "\nTwofish fatal error: %s\nProcess terminated\n", msg);
  exit(3);
}
