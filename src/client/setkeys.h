#pragma once

#include <string>

/// The request line for "KEY=VALUE". Keys are told apart without regard to case.
/// A flag is 1, 0, on, off, yes or no; items of a list are separated by blanks or commas.
/// Throws TUsageFailure for an unknown key, a value of the wrong form, and for the password, which
/// does not belong into arguments.
std::string SetLine(const std::string& assignment);
