#pragma once

/// The C library's own, which <assert.h> hides from a release build.
extern "C" [[noreturn]] void __assert_fail(const char* expression, const char* source,
                                           unsigned line, const char* function) noexcept;

/// Reports a programming error in the form of the C library's assert and aborts.
/// @param expression  the condition that does not hold
/// @param source      module the caller belongs to, for example "wqstring"
/// @param line        line number that the module's users know this assertion by
/// @param function    signature of the function that found the error
[[noreturn]] inline void AssertFail(const char* expression, const char* source, unsigned line,
                                    const char* function) {
  __assert_fail(expression, source, line, function);
}
