#include <gtest/gtest.h>
#include <nettle/base16.h>
#include <string.h>

#include <map>

#include "protocol/ciplib.h"
#include "protocol/twofish.h"

namespace {

std::string Hex(const void* bytes, size_t count) {
  std::string result(2 * count, '\0');
  base16_encode_update(result.data(), count, static_cast<const uint8_t*>(bytes));
  return result;
}

}  // namespace

TEST(Crc, IsTheComplementOfTheStandardValueHoweverItIsFed) {
  TCRC32 crc;
  EXPECT_EQ(0x340BC6D9u, crc.GetBlockCRC("123456789", -1));
  EXPECT_EQ(0xFFFFFFFFu, crc.GetBlockCRC(nullptr, 5));
  std::string text;
  TCRC32 single;
  for (int size = 0; size < 100; ++size) {
    EXPECT_EQ(single.GetCRC(), crc.GetBlockCRC(text.data(), size)) << size;
    text += static_cast<char>(size * 151 + 7);
    single.UpdateCRC(static_cast<unsigned char>(text.back()));
  }
  crc.GetBlockCRC(text.data(), 37);
  crc.UpdateCRC(text.data() + 37, 63);
  EXPECT_EQ(single.GetCRC(), crc.GetCRC());
}

TEST(Sha, PublishedDigestsAndPaddingBoundaries) {
  const std::map<std::string, std::string> digests = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
      {std::string(64, 'a'), "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
      {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
  };
  for (const auto& [message, digest] : digests) {
    THash_SHA hash;
    const long size = static_cast<long>(message.size());
    EXPECT_EQ(digest, Hex(hash.GetHash(message.data(), size), 20));
    hash.Update(message.data(), size / 3);  // starts anew after the digest above
    hash.Update(message.data() + size / 3, size - size / 3);
    hash.Final();
    EXPECT_EQ(digest, Hex(hash.GetHash(nullptr, 0), 20));
  }
}

TEST(ShaDeathTest, MisuseAborts) {
  THash_SHA hash;  // constructed with a hash in progress
  EXPECT_DEATH(hash.GetHash(nullptr, 0), "ciplib:245: .*GetHash\\(const char\\*, long int\\): ");
  hash.Final();
  EXPECT_DEATH(hash.Final(), "ciplib:212: void THash_SHA::Final\\(\\): Assertion `fInit");
}

TEST(Md5, PublishedDigests) {
  const std::map<std::string, std::string> digests = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [message, expected] : digests) {
    MD5 md5;
    MD5Open(&md5);
    for (const char byte : message) MD5Digest(&md5, &byte, 1);
    unsigned char digest[16];
    MD5Close(&md5, digest);
    EXPECT_EQ(expected, Hex(digest, sizeof digest));
  }
}

TEST(Twofish, PublishedBlocksOfEachKeySize) {
  Twofish_initialise();
  const std::map<int, std::string> ciphers = {{16, "9f589f5cf6122c32b6bfec2f2ae8c35a"},
                                              {24, "efa71f788965bd4453f860178fc19101"},
                                              {32, "57ff739d4dc92c1bd7fc01700cc8216f"}};
  const unsigned char zero[32] = {};
  for (const auto& [size, cipher] : ciphers) {
    Twofish_key key;
    Twofish_prepare_key(zero, size, &key);
    unsigned char block[16] = {};
    Twofish_encrypt(&key, block, block);
    EXPECT_EQ(cipher, Hex(block, sizeof block));
    Twofish_decrypt(&key, block, block);
    EXPECT_EQ(std::string(32, '0'), Hex(block, sizeof block));
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
