#pragma once

/// First line of every reply.
inline constexpr char kResultDone[] = "200";            ///< test passed or operation done
inline constexpr char kResultFailed[] = "300";          ///< test performed, condition bad
inline constexpr char kResultCannot[] = "301";          ///< test could not be performed
inline constexpr char kResultBusy[] = "302";            ///< another session is upgrading
inline constexpr char kResultUnknown[] = "500";         ///< unknown or not applicable
inline constexpr char kResultWrongParameter[] = "501";  ///< wrong or missing parameters
inline constexpr char kResultIncomplete[] = "502";      ///< end of transmission missed
inline constexpr char kResultRefused[] = "600";         ///< refused by the settings
