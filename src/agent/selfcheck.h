#pragma once

/// The checks that every start runs before the agent serves. Each prints its prompt and outcome on
/// standard output.

/// Tells the platform's sizes where the run asks for detail; computes nothing.
void ReportPlatform();
/// Runs the cipher's self test, which ends the process with status 3 on a fault, then takes one
/// block there and back; false when it does not come back.
bool CheckCipher();
/// One text through the packet codec and back; false when it does not come back.
bool CheckCodec();
