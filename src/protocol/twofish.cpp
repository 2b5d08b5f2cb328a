#include "protocol/twofish.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr size_t kBlock = TWOFISH_BLOCK_SIZE;
constexpr int kMaxKey = TWOFISH_MAX_KEY_SIZE;
constexpr int kKeySizes[] = {TWOFISH128_KEY_SIZE, TWOFISH192_KEY_SIZE, TWOFISH256_KEY_SIZE};

bool Twofish_initialised = false;

struct TVector {
  int keySize;
  uint8_t key[kMaxKey];
  uint8_t plain[kBlock];
  uint8_t cipher[kBlock];
};

/// Known answers published with the cipher.
constexpr TVector kVectors[] = {
    {16,
     {0x9F, 0x58, 0x9F, 0x5C, 0xF6, 0x12, 0x2C, 0x32, 0xB6, 0xBF, 0xEC, 0x2F, 0x2A, 0xE8, 0xC3,
      0x5A},
     {0xD4, 0x91, 0xDB, 0x16, 0xE7, 0xB1, 0xC3, 0x9E, 0x86, 0xCB, 0x08, 0x6B, 0x78, 0x9F, 0x54,
      0x19},
     {0x01, 0x9F, 0x98, 0x09, 0xDE, 0x17, 0x11, 0x85, 0x8F, 0xAA, 0xC3, 0xA3, 0xBA, 0x20, 0xFB,
      0xC3}},
    {24,
     {0x88, 0xB2, 0xB2, 0x70, 0x6B, 0x10, 0x5E, 0x36, 0xB4, 0x46, 0xBB, 0x6D,
      0x73, 0x1A, 0x1E, 0x88, 0xEF, 0xA7, 0x1F, 0x78, 0x89, 0x65, 0xBD, 0x44},
     {0x39, 0xDA, 0x69, 0xD6, 0xBA, 0x49, 0x97, 0xD5, 0x85, 0xB6, 0xDC, 0x07, 0x3C, 0xA3, 0x41,
      0xB2},
     {0x18, 0x2B, 0x02, 0xD8, 0x14, 0x97, 0xEA, 0x45, 0xF9, 0xDA, 0xAC, 0xDC, 0x29, 0x19, 0x3A,
      0x65}},
    {32,
     {0xD4, 0x3B, 0xB7, 0x55, 0x6E, 0xA3, 0x2E, 0x46, 0xF2, 0xA2, 0x82,
      0xB7, 0xD4, 0x5B, 0x4E, 0x0D, 0x57, 0xFF, 0x73, 0x9D, 0x4D, 0xC9,
      0x2C, 0x1B, 0xD7, 0xFC, 0x01, 0x70, 0x0C, 0xC8, 0x21, 0x6F},
     {0x90, 0xAF, 0xE9, 0x1B, 0xB2, 0x88, 0x54, 0x4F, 0x2C, 0x32, 0xDC, 0x23, 0x9B, 0x26, 0x35,
      0xE6},
     {0x6C, 0xB4, 0x56, 0x1C, 0x40, 0xBF, 0x0A, 0x97, 0x05, 0x93, 0x1C, 0xB6, 0xD4, 0x08, 0xE7,
      0xFA}},
};

/// Last ciphertext of the published iterated test, for each key size.
constexpr int kSequenceRounds = 49;
constexpr uint8_t kSequenceEnds[][kBlock] = {
    {0x5D, 0x9D, 0x4E, 0xEF, 0xFA, 0x91, 0x51, 0x57, 0x55, 0x24, 0xF1, 0x15, 0x81, 0x5A, 0x12,
     0xE0},
    {0xE7, 0x54, 0x49, 0x21, 0x2B, 0xEE, 0xF9, 0xF4, 0xA3, 0x90, 0xBD, 0x86, 0x0A, 0x64, 0x09,
     0x41},
    {0x37, 0xFE, 0x26, 0xFF, 0x1C, 0xF6, 0x61, 0x75, 0xF5, 0xDD, 0xF4, 0xC3, 0x3B, 0x97, 0xA2,
     0x05},
};

int PaddedSize(int len) {
  for (const int size : kKeySizes) {
    if (len <= size) return size;
  }
  return kMaxKey;
}

/// The length fields and the checksum move words as the cipher's standard does, lowest byte first.
/// The cipher's own primitives lie inside the library, where only the known answers reach them.
void test_platform() {
  const uint8_t bytes[4] = {1, 2, 3, 4};
  uint32_t word;
  memcpy(&word, bytes, sizeof word);
  if (word != 0x04030201u) Twofish_fatal("Twofish code: GET32 not implemented properly");
  uint8_t stored[4];
  word = 0x04030201u;
  memcpy(stored, &word, sizeof stored);
  if (memcmp(stored, bytes, sizeof bytes) != 0) {
    Twofish_fatal("Twofish code: PUT32 not implemented properly");
  }
}

void test_vectors() {
  for (const TVector& v : kVectors) {
    Twofish_key key;
    Twofish_prepare_key(v.key, v.keySize, &key);
    uint8_t block[kBlock];
    Twofish_encrypt(&key, v.plain, block);
    if (memcmp(block, v.cipher, kBlock) != 0) Twofish_fatal("Twofish encryption failure");
    Twofish_decrypt(&key, block, block);
    if (memcmp(block, v.plain, kBlock) != 0) Twofish_fatal("Twofish decryption failure");
  }
}

/// Each ciphertext is the next plaintext, and each plaintext moves into the front of the next key.
void test_sequence(int keySize, const uint8_t expected[kBlock]) {
  uint8_t keyBytes[kMaxKey] = {};
  uint8_t plain[kBlock] = {};
  for (int round = 0; round < kSequenceRounds; ++round) {
    Twofish_key key;
    Twofish_prepare_key(keyBytes, keySize, &key);
    uint8_t cipher[kBlock];
    uint8_t back[kBlock];
    Twofish_encrypt(&key, plain, cipher);
    Twofish_decrypt(&key, cipher, back);
    if (memcmp(back, plain, kBlock) != 0) {
      Twofish_fatal("Twofish decryption failure in sequence");
    }
    memmove(keyBytes + kBlock, keyBytes, kMaxKey - kBlock);
    memcpy(keyBytes, plain, kBlock);
    memcpy(plain, cipher, kBlock);
  }
  if (memcmp(plain, expected, kBlock) != 0) {
    Twofish_fatal("Twofish encryption failure in sequence");
  }
}

void test_sequences() {
  for (size_t i = 0; i < sizeof kKeySizes / sizeof *kKeySizes; ++i) {
    test_sequence(kKeySizes[i], kSequenceEnds[i]);
  }
}

/// The bytes behind a key must not matter: the longer keys' bytes lie there.
void test_odd_sized_keys() {
  uint8_t bytes[kMaxKey];
  for (int i = 0; i < kMaxKey; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  for (int len = 0; len <= kMaxKey; ++len) {
    uint8_t padded[kMaxKey] = {};
    memcpy(padded, bytes, static_cast<size_t>(len));
    Twofish_key odd;
    Twofish_key whole;
    Twofish_prepare_key(bytes, len, &odd);
    Twofish_prepare_key(padded, PaddedSize(len), &whole);
    if (memcmp(&odd, &whole, sizeof odd) != 0) {
      Twofish_fatal("Odd sized keys do not expand properly");
    }
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
