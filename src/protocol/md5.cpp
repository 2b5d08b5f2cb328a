#include "protocol/md5.h"

void MD5Open(MD5* md5) { md5_init(&md5->context); }

void MD5Digest(MD5* md5, const void* data, unsigned len) {
  if (len == 0) return;
  md5_update(&md5->context, len, static_cast<const uint8_t*>(data));
}

void MD5Close(MD5* md5, unsigned char digest[16]) {
  md5_digest(&md5->context, MD5_DIGEST_SIZE, digest);
}
