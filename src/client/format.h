#pragma once

#include <string>

#include "client/values.h"

/// What a person reads, with units in aligned columns. Every text ends in a line feed.

/// A reply, whatever its code.
/// @param showPassword  false: the value of a "Password" line is masked
std::string FormatAnswer(const TCommand& command, const TAnswer& answer, bool showPassword);
/// Code, meaning and the lines as they came.
std::string FormatRaw(const TAnswer& answer);
/// Why a command was not carried out: meaning of the code and the agent's own words, on one line.
std::string DescribeFailure(const TCommand& command, const TAnswer& answer);
/// "12.5 GiB"; below 1 KiB "512 B".
std::string ReadableBytes(double sizeBytes);
/// At most two decimals, none that say nothing.
std::string RoundedNumber(double number);
/// Label and text pairs, the texts in one column.
std::string AlignColumns(const TKeys& rows);
/// A value with its unit, on one line or, for a text of several, on several.
std::string ReadableValue(const TValue& value);
