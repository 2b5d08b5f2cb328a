#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string.h>

#include "protocol/ciplib.h"
#include "protocol/twofish.h"

static int calls[3];   // of the library's cipher so far: keys, blocks enciphered and deciphered
static int faulty[3];  // which of each goes wrong, counted from 1

// The library's own function behind one of those below.
#define REAL(function) \
  reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, "nettle_" #function))

// In front of the library's own, so that its cipher can fail.
void twofish_set_key(twofish_ctx* key, size_t size, const uint8_t* bytes) {
  REAL(twofish_set_key)(key, size, bytes);
  if (++calls[0] == faulty[0]) key->keys[0] ^= 1;
}
void twofish_encrypt(const twofish_ctx* key, size_t size, uint8_t* out, const uint8_t* in) {
  REAL(twofish_encrypt)(key, size, out, in);
  if (++calls[1] == faulty[1]) out[15] ^= 1;
}
void twofish_decrypt(const twofish_ctx* key, size_t size, uint8_t* out, const uint8_t* in) {
  REAL(twofish_decrypt)(key, size, out, in);
  if (++calls[2] == faulty[2]) out[15] ^= 1;
}

static void StartWithFault(int kind, int call) {
  memset(calls, 0, sizeof calls);
  faulty[kind] = call;
  Twofish_initialise();
}

TEST(TwofishDeathTest, SelfTestSeesEveryFaultOfTheLibrary) {
  constexpr int kBeforeOdd = 3 + 3 * 49;
  const std::tuple<int, int, const char*> cases[] = {
      {0, 1, "Twofish encryption failure\n"},
      {1, 3, "Twofish encryption failure\n"},
      {2, 3, "Twofish decryption failure\n"},
      {2, 4, "Twofish decryption failure in sequence\n"},
      {0, kBeforeOdd, "Twofish encryption failure in sequence\n"},
      {0, kBeforeOdd + 1, "Odd sized keys do not expand properly\n"},
      {0, kBeforeOdd + 2 * 33, "Odd sized keys do not expand properly\n"}};
  for (const auto& [kind, call, text] : cases) {
    EXPECT_EXIT(StartWithFault(kind, call), testing::ExitedWithCode(3), text) << call;
  }
}

TEST(TwofishDeathTest, MisuseEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has initialised nothing
  const unsigned char bytes[33] = {};
  Twofish_key key;
  EXPECT_EXIT(Twofish_prepare_key(bytes, 16, &key), testing::ExitedWithCode(3),
              "^\nTwofish fatal error: Twofish implementation was not initialised.\n"
              "Process terminated\n$");
  for (const int len : {-1, 33}) {
    EXPECT_EXIT((Twofish_initialise(), Twofish_prepare_key(bytes, len, &key)),
                testing::ExitedWithCode(3), "Twofish_prepare_key: illegal key length\n");
  }
}

TEST(Crc, IsTheComplementOfTheStandardValueHoweverItIsFed) {
  TCRC32 crc;
  EXPECT_EQ(0x340BC6D9u, crc.GetBlockCRC("123456789", -1));
  EXPECT_EQ(0xFFFFFFFFu, crc.GetBlockCRC(nullptr, 5));
  std::string text;
  TCRC32 single;
  for (int size = 0; size < 70; ++size) {
    EXPECT_EQ(single.GetCRC(), crc.GetBlockCRC(text.data(), size)) << size;
    text += static_cast<char>(size * 151 + 7);
    single.UpdateCRC(static_cast<unsigned char>(text.back()));
  }
  crc.GetBlockCRC(text.data(), 37);
  crc.UpdateCRC(text.data() + 37, 33);
  EXPECT_EQ(single.GetCRC(), crc.GetCRC());
}

TEST(ShaDeathTest, HashesInPiecesEndsIdleAndRefusesMisuse) {
  THash_SHA hash;  // constructed with a hash in progress
  EXPECT_DEATH(hash.GetHash(nullptr, 0), "ciplib:245: .*GetHash\\(const char\\*, long int\\): ");
  EXPECT_EQ(0, memcmp(hash.GetHash("", 0), "\xda\x39\xa3\xee\x5e\x6b\x4b\x0d", 8));
  EXPECT_DEATH(hash.Final(), "ciplib:212: void THash_SHA::Final\\(\\): Assertion `fInit");
  hash.Update("a", 1);  // begins anew
  hash.Update("bc", 2);
  hash.Final();
  EXPECT_EQ(0, memcmp(hash.GetHash(nullptr, 0), "\xa9\x99\x3e\x36\x47\x06\x81\x6a", 8));
}
