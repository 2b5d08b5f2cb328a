#pragma once

#include <nettle/twofish.h>

/// The Twofish block cipher, 16-byte blocks.

/// A prepared key; read-only after Twofish_prepare_key, so threads may share it.
struct Twofish_key {
  twofish_ctx context;
};

/// Runs the self test and allows keys to be prepared. Call it once, before any thread starts.
/// A failed test ends the process through Twofish_fatal.
void Twofish_initialise();

/// Prepares a key of 0 to 32 bytes, padded with zero bytes to the next of 16, 24 and 32. Another
/// length, or a call before Twofish_initialise, ends the process through Twofish_fatal.
void Twofish_prepare_key(const unsigned char* key, int len, Twofish_key* out);

/// One block; in and out may be the same buffer.
void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);
void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);

/// Writes "\nTwofish fatal error: %s\nProcess terminated\n" to standard error; exit status 3.
[[noreturn]] void Twofish_fatal(const char* msg);
