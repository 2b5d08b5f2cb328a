#include <nettle/twofish.h>
#include <zlib.h>

#include <random>

#include "client/vxwire.h"
#include "protocol/ciplib.h"
#include "protocol/reply.h"
#include "support/scopes.h"

static int calls, faulty;  // keys prepared and blocks deciphered by these, the wrong one

static void Prepare(const unsigned char* bytes, int len, Twofish_key* key) {
  Twofish_prepare_key(bytes, len, key);
  if (++calls == faulty) key->words[0] ^= 1;
}
static void Decrypt(const Twofish_key* key, const unsigned char* in, unsigned char* out) {
  Twofish_decrypt(key, in, out);
  if (++calls == faulty) out[15] ^= 1;
}

TEST(TwofishDeathTest, SelfTestSeesEveryFault) {
  constexpr int kBeforeOdd = 2 * (3 + 3 * 49);  // vectors and sequences: a key, a block each
  for (const auto& [call, text] :
       {std::pair(5, "Twofish encryption failure\n"),
        {6, "Twofish decryption failure\n"},
        {8, "Twofish decryption failure in sequence\n"},
        {kBeforeOdd - 1, "Twofish encryption failure in sequence\n"},
        {kBeforeOdd + 1, "Odd sized keys do not expand properly\n"},
        {kBeforeOdd + 2 * 33, "Odd sized keys do not expand properly\n"}}) {
    calls = 0;
    faulty = call;
    EXPECT_EXIT(Twofish_initialise({&Prepare, &Twofish_encrypt, &Decrypt}),
                testing::ExitedWithCode(3), text)
        << call;
  }
}

TEST(Codec, BlocksAreThoseOfTheLibrary) {
  Twofish_initialise();
  std::minstd_rand random(3);
  unsigned char bytes[kTwofishMaxKey + 20], block[kTwofishBlock], expected[kTwofishBlock], first[5];
  for (int round = 0; round < 300; ++round) {
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8);
    const int size = 16 + round % 3 * 8;
    Twofish_key key;
    twofish_ctx library;
    Twofish_prepare_key(bytes, size, &key);
    twofish_set_key(&library, static_cast<size_t>(size), bytes);
    const unsigned char* in = bytes + kTwofishMaxKey;
    Twofish_first_bytes(key, in, first, 5);
    for (int i = 0; i < 5; ++i) {
      Twofish_encrypt(&key, in + i, block);
      twofish_encrypt(&library, sizeof expected, expected, in + i);
      EXPECT_EQ(0, memcmp(block, expected, sizeof block));
      EXPECT_EQ(expected[0], first[i]);
    }
  }
}

TEST(TwofishDeathTest, MisuseEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has initialised nothing
  Twofish_key key;
  EXPECT_EXIT(Twofish_prepare_key(nullptr, 0, &key), testing::ExitedWithCode(3),
              "^\nTwofish fatal error: Twofish implementation was not initialised.\n"
              "Process terminated\n$");
  for (const int len : {-1, 33})
    EXPECT_EXIT((Twofish_initialise(), Twofish_prepare_key(nullptr, len, &key)),
                testing::ExitedWithCode(3), "Twofish_prepare_key: illegal key length\n");
}

TEST(CodecDeathTest, SumsAndHashesHoweverTheyAreFedAndReadsLengths) {
  TCRC32 crc;
  std::string text;
  for (int i = 0; i < 320; ++i) text += static_cast<char>(i * 151 + 7);
  const bool folds = TCRC32::Folds;
  for (const bool folded : {folds, false}) {
    TCRC32::Folds = folded;
    for (int n = 0; n < 16 * 301; ++n) {
      const char* p = &text[static_cast<size_t>(n / 301)];
      ASSERT_EQ(crc32(0, Bytes(p), static_cast<uInt>(n % 301)), ~crc.GetBlockCRC(p, n % 301)) << n;
    }
  }
  TCRC32::Folds = folds;
  EXPECT_EQ(0x340BC6D9u, crc.GetBlockCRC("123456789", -1));
  EXPECT_EQ(0xFFFFFFFFu, crc.GetBlockCRC(nullptr, 5));
  THash_SHA hash;  // constructed with a hash in progress
  EXPECT_DEATH(hash.GetHash(nullptr, 0), "ciplib:245: .*GetHash\\(const char\\*, long int\\): ");
  hash.Final();
  EXPECT_DEATH(hash.Final(), "ciplib:212: void THash_SHA::Final\\(\\): Assertion `fInit");
  hash.Update("x", 1);
  hash.Burn();
  for (const char c : {'a', 'b', 'c'}) hash.Update(&c, 1);  // begins anew
  hash.Final();
  EXPECT_EQ(0, memcmp(hash.GetHash(nullptr, 0), "\xa9\x99\x3e\x36\x47\x06\x81\x6a", 8));

  for (int width = 0; const int expected : {0, 254, 65534, 0, -2})
    EXPECT_EQ(expected, DecodeLength("\xFE\xFF\xFF\xFF", width++));
  EXPECT_DEATH(EncodeLength("", 5), "qov_const:43: String Enc.*`digits<=sizeof\\(len\\)' failed");
  EXPECT_DEATH(DecodeLength("12345", 5),
               "qov_const:54: .*Assertion `digits<=sizeof\\(int\\)' failed");
}

TEST(Codec, CipherProofAndPacketsAgreeWithThePeer) {
  Twofish_initialise();
  std::string text;
  for (int i = 1; i <= 300; ++i) {
    text += static_cast<char>(i * 37);
    const String packet = EncodeData(ToString(text), "k1", 4);
    EXPECT_EQ(BuildReply("k1", text), ToStd(packet));
    EXPECT_EQ(text, ToStd(DecodeData(packet.Copy(5, i), "k1")));
  }
  EXPECT_EQ(BuildRequest("pw", "", "").substr(8, 16), ToStd(EncodePswd("pw")));
  QovReply reply;
  reply.InitPacket("text", "k1");
  EXPECT_EQ("text\n", reply);
  reply.SetResult(kResultDone) += "unfinished line";
  reply.FinalizePacket();
  EXPECT_EQ(BuildReply("k1", "200\nunfinished line\n\r"), ToStd(reply));
}

TEST(Codec, ReadsValuesAndEscapesLineBreaks) {
  for (const char* text : {"0", " 1", "1 ", ""}) EXPECT_EQ(0, qovDecodeBool(text));
  for (const auto& [text, plain] : {std::pair("-7", -7), {"", 0}, {"1-2", 1}}) {
    int value = 77;
    double large = 77;
    EXPECT_EQ(2, qovDecodeInt(text, &value) + qovDecodeInt64(text, &large));
    EXPECT_EQ(0, qovDecodeInt(" 1", &value) + qovDecodeInt64("x", &large));
    EXPECT_EQ(std::pair(plain, 0.0 + plain), std::pair(value, large)) << text;
  }
  EXPECT_EQ(INT_MAX, qovDecodeInt("99999999999"));
  // Deliberate: month and year stay as read.
  const struct tm t = qovDecodeTime("31122023235958");
  EXPECT_EQ(std::tuple(31, 12, 2023, 23, 59, 58),
            std::tie(t.tm_mday, t.tm_mon, t.tm_year, t.tm_hour, t.tm_min, t.tm_sec));
  EXPECT_EQ(0, qovDecodeTime("311220232359581").tm_mday);
  const String plain("\0%a\r\n%0a%0%0B%1Ax0A", 19), escaped("\0%a%0D%0A%0a%0%0B%1Ax0A", 23);
  EXPECT_EQ(escaped, qovEncodeStrings(plain));
  EXPECT_EQ(plain, qovDecodeStrings(escaped));
  EXPECT_EQ("a%0b\nb%0A", qovEncodeStrings("a\nb", 1) + qovDecodeStrings("%0A", 2) +
                              qovDecodeStrings("b%0A", 0) + qovEncodeStrings("b\n", -1) +
                              qovEncodeStrings(nullptr, 3) + qovDecodeStrings(nullptr, 3));
}

TEST(Reply, CollectsOneLineAValue) {
  const TEnvironment zone("TZ", "UTC-1");
  QovReply reply;
  reply.AddIntParam(5);
  reply.SetResult(kResultFailed) += "reason";
  reply.AddStringParam("a\nb", 1);
  reply.AddStringParam("c\n", 0);
  for (const int b : {7, 0}) reply.AddBoolParam(b);
  for (const double value : {5.0, -0.5, 1e300}) {
    reply.AddIntParam(value);
    reply.AddRealParam(value);
  }
  reply.AddTimeParam(time_t{1700000000});
  struct tm far = {};
  far.tm_year = far.tm_mon = INT_MAX;
  reply.AddTimeParam(far);
  // Deliberate: a raw value that ends a line of its own leaves an empty one behind it.
  std::string text =
      "300\nreason\na%0Ab\nc\n\n1\n0\n     5\n5.0000\n    -0\n-0.5000\n"
      "1000000000000000052504760255204420\n1000000000000000052504760255204420\n"
      "14112023231320\n0021474836482147485547000000\n";
  for (int i = 0; i < 10; ++i, text += text + '\n') {
    EXPECT_EQ(text, ToStd(reply));
    reply.AddStringParam(reply, 0);
  }
  for (const auto& [size, added] : {std::pair(2047, 2048), {2048, 2048}, {2049, 0}}) {
    reply = "";
    reply.AddVarParams("%*d", size, 1);
    EXPECT_EQ(added, reply.Length()) << size;
  }
}
