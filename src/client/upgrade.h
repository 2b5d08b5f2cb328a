#pragma once

#include <functional>
#include <string>

#include "client/answer.h"

/// Sizes that an agent accepts, bytes.
inline constexpr size_t kUpgradeMinBytes = 101;
inline constexpr size_t kUpgradeMaxBytes = 10485759;

/// Told how much has gone out, in bytes.
using TUpgradeProgress = std::function<void(size_t sent, size_t total)>;

/// Replaces the agent's executable by `program`; the agent then executes the new one.
/// An agent takes the digest only from the same read as the program's last byte. Both are sent as
/// one segment once it has read everything before; where it had not, it answers "Wrong CRC" and
/// everything is sent again, three times in all.
/// @return the agent's answer to the request where that refuses, else to the transfer
/// Throws TUsageFailure for a size that the agent would not accept (it is not asked then: a refused
/// size blocks all upgrades until it restarts), TSilence when it stops answering.
TAnswer Upgrade(const TTarget& target, const std::string& program,
                const TUpgradeProgress& progress);
