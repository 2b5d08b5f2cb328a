#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "core/wqstring.h"

/// Between the product's strings and the library's, embedded zero bytes kept.
inline String ToString(std::string_view bytes) {
  return String(bytes.data(), static_cast<int>(bytes.size()));
}
inline std::string ToStd(const String& s) {
  return s.Data() == nullptr ? std::string()
                             : std::string(s.Data(), static_cast<size_t>(s.Length()));
}

/// Shows a String in a failed expectation.
inline void PrintTo(const String& s, std::ostream* out) { *out << '"' << ToStd(s) << '"'; }
