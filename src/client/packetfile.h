#pragma once

#include <string>

/// Packets as text for bug reports: hexadecimal, 16 bytes a line, remarks behind '#'.

/// Hexadecimal lines of the bytes, each ended by a line feed.
std::string HexText(const std::string& bytes);
/// The bytes of a packet file: hexadecimal text, or else the packet itself.
std::string ReadPacketText(const std::string& content);

/// What a request packet holds, field by field.
/// @param valid  out: true when an agent with this password would accept it
std::string DescribeRequest(const std::string& packet, const std::string& password, bool& valid);
/// What a reply packet holds. @param valid  out: true when it is whole and readable under the key
std::string DescribeReply(const std::string& packet, const std::string& sessionKey, bool& valid);
