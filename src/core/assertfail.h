#pragma once

/// Reports a programming error and aborts. It is the C library's own, which <assert.h> hides from a
/// release build; module and line are those that the assertion is known by, not where it stands.
extern "C" [[noreturn]] void __assert_fail(const char* expression, const char* source,
                                           unsigned line, const char* function) noexcept;
