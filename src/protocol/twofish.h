#pragma once

#include <stdint.h>

// The Twofish block cipher. Driven by tables, read at places that depend on key and data: no
// protection against somebody who watches this machine's caches.

inline constexpr int kTwofishBlock = 16;   ///< bytes
inline constexpr int kTwofishMaxKey = 32;  ///< bytes

/// A prepared key; read-only after Twofish_prepare_key, so threads may share it.
struct Twofish_key {
  uint32_t boxes[4][256];  ///< what each byte of a word adds to the round function
  uint32_t words[40];      ///< added before the rounds, after them, and two in each
};

/// Prepares a key of 0 to 32 bytes, padded with zero bytes to the next of 16, 24 and 32. Another
/// length, or a call before Twofish_initialise, ends the process through Twofish_fatal.
void Twofish_prepare_key(const unsigned char* key, int len, Twofish_key* out);

/// One block; in and out may be the same buffer.
void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);
void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);

/// out[i] becomes the first byte of the block to which Twofish_encrypt takes the one at in + i, for
/// `count` of them: all that a feedback of 8 bits needs, and cheaper. The buffers are separate.
void Twofish_first_bytes(const Twofish_key& key, const unsigned char* in, unsigned char* out,
                         int count);

/// The steps that the self test judges.
struct TTwofishSteps {
  decltype(&Twofish_prepare_key) prepare = &Twofish_prepare_key;
  decltype(&Twofish_encrypt) encrypt = &Twofish_encrypt;
  decltype(&Twofish_decrypt) decrypt = &Twofish_decrypt;
};
/// Allows keys to be prepared and holds the steps against the published answers; a wrong one ends
/// the process through Twofish_fatal. Call it once, before any thread starts.
void Twofish_initialise(const TTwofishSteps& steps = {});

/// Writes "\nTwofish fatal error: %s\nProcess terminated\n" to standard error; exit status 3.
[[noreturn]] void Twofish_fatal(const char* msg);
