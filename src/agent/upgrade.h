#pragma once

#include <stdint.h>

#include "core/owned.h"
#include "core/wqstring.h"
#include "protocol/ciplib.h"

/// One session's part in a remote upgrade of the executable. One thread; only the claim is shared.
/// The connection brings exactly expectedSize bytes, the new executable, then, whole in one
/// received chunk, their MD5 digest enciphered under the session key.
struct UpgradeRec {
  uint32_t active = 0;       ///< 1: this session holds the claim and receives data
  int64_t expectedSize = 0;  ///< announced size, bytes
  int64_t receivedSize = 0;  ///< bytes written so far
  int64_t sized = 0;         ///< 1 once the size is known
  TFile file;                ///< the temporary file being written
  String tempPath;           ///< empty until the first DoUpgrading
  MD5 digest{};              ///< of the bytes written so far
  String sessionKey;
  /// The script of a completed upgrade. The session hands it to QovFlags once its reply is out:
  /// the end of any other session would have it executed.
  String script;

  /// Takes the process-wide claim; false when another session holds it.
  /// Deliberate: a session that ends while receiving keeps the claim until the agent restarts, so
  /// that no other one writes into its files.
  bool RequestUpgrade(const String& key);
  /// Gives the claim back and leaves data mode.
  void ClearanceUpgrade();
};

/// Opens the temporary file on the first call, then takes one received chunk (data may be null).
/// When the transfer is complete and good, writes the script that swaps the executables.
/// @return 1 when all is well so far or the upgrade has completed, 0 with the reason in `error`.
///         Deliberate: a completed upgrade whose new file could not be made executable returns 1
///         and still carries an error.
int DoUpgrading(UpgradeRec& rec, char* data, int length, String& error);
