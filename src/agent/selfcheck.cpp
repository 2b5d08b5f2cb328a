#include "agent/selfcheck.h"

#include <stdio.h>
#include <string.h>

#include "config/settings.h"
#include "protocol/ciplib.h"
#include "protocol/qov_const.h"
#include "protocol/twofish.h"

namespace {

constexpr char kPassphrase[] = "test-key-value";
constexpr char kPlainText[16] = "123456789012345";

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

}  // namespace

void ReportPlatform() {
  puts("CPU testing .. Ok");
  if (QovSettings.debug == 0) return;
  printf("stat.size: %d\n", 8);
  printf("srec.size: %d\n", 8);
  puts("int64 = double");
}

bool CheckCipher() {
  Twofish_initialise();
  THash_SHA hash;
  const char* digest = hash.GetHash(kPassphrase, static_cast<long>(strlen(kPassphrase)));
  Twofish_key key;
  Twofish_prepare_key(Bytes(digest), hash.GetHashSize(), &key);
  unsigned char block[sizeof kPlainText];
  Twofish_encrypt(&key, Bytes(kPlainText), block);
  Twofish_decrypt(&key, block, block);
  const bool same = memcmp(block, kPlainText, sizeof block) == 0;
  printf("Basic encyption checking .. %s\n", same ? "Ok" : "Error");
  return same;
}

bool CheckCodec() {
  const String coded = EncodeData(kPlainText, kPassphrase, 0);
  const bool same = DecodeData(coded, kPassphrase) == kPlainText;
  printf("QOV encyption checking .. %s\n", same ? "Ok" : "Error");
  return same;
}
