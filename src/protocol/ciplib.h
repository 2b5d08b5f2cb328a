#pragma once

#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <stdint.h>

/// CRC-32 (reflected polynomial 0xEDB88320). One thread at a time.
/// Deliberate: there is no final XOR, the value is the complement of the standard CRC-32.
class TCRC32 {
 public:
  /// Whether the processor folds 64 bytes at a time, as found at the start; else tables take 16.
  static bool Folds;

  void InitCRC() { register_ = 0xFFFFFFFFu; }
  void UpdateCRC(unsigned char c);
  /// len = -1: up to the terminator; a null pointer does nothing.
  void UpdateCRC(const char* p, int len);
  uint32_t GetCRC() const { return register_; }
  /// The CRC of this block alone. Not called by the agent itself.
  uint32_t GetBlockCRC(const char* p, int len);

 private:
  uint32_t register_ = 0xFFFFFFFFu;
};

/// SHA-1. One thread at a time.
class THash_SHA {
 public:
  THash_SHA() { Init(); }
  ~THash_SHA() { Burn(); }
  THash_SHA(const THash_SHA&) = delete;
  THash_SHA& operator=(const THash_SHA&) = delete;

  void Init();
  /// Erases everything the object holds and leaves it idle.
  void Burn();
  /// Adds len bytes; starts a hash when none is in progress.
  void Update(const char* p, long len);
  /// Ends the hash in progress; without one the process aborts.
  void Final();
  /// The 20 bytes, inside the object, of the digest of p's len bytes, or with a null p of that of
  /// the last Final (a hash still in progress aborts the process).
  const char* GetHash(const char* p, long len);
  int GetHashSize() const { return SHA1_DIGEST_SIZE; }

 private:
  sha1_ctx context_;
  uint8_t digest_[SHA1_DIGEST_SIZE];
  bool initialized_;
};

/// A running MD5. Open, feed with Digest, Close. One thread at a time.
struct MD5 {
  md5_ctx context;
};

inline void MD5Open(MD5* md5) { md5_init(&md5->context); }
inline void MD5Digest(MD5* md5, const void* data, unsigned len) {
  if (len > 0) md5_update(&md5->context, len, static_cast<const uint8_t*>(data));
}
inline void MD5Close(MD5* md5, unsigned char digest[16]) {
  md5_digest(&md5->context, MD5_DIGEST_SIZE, digest);
}
