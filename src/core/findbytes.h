#pragma once

#include <stddef.h>

/// The first occurrence of the plen bytes of pat in the len bytes of buf; null for none and for
/// empty sizes. The time grows with len alone. Any thread.
const char* FindBytes(const char* buf, size_t len, const char* pat, size_t plen);
/// The same without regard to ASCII case; a pat that nearly stands everywhere costs up to
/// len * plen steps.
const char* FindBytesFolded(const char* buf, size_t len, const char* pat, size_t plen);
