#pragma once

/// Reports a programming error in the form of the C library's assert and aborts.
/// @param expression  the condition that does not hold
/// @param source      module the caller belongs to, for example "wqstring"
/// @param line        line number that the module's users know this assertion by
/// @param function    signature of the function that found the error
[[noreturn]] void AssertFail(const char* expression, const char* source, int line,
                             const char* function);
