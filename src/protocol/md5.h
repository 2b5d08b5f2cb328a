#pragma once

#include <nettle/md5.h>

/// A running MD5. Open, feed with Digest, Close. One thread at a time.
struct MD5 {
  md5_ctx context;
};

void MD5Open(MD5* md5);
void MD5Digest(MD5* md5, const void* data, unsigned len);
void MD5Close(MD5* md5, unsigned char digest[16]);
