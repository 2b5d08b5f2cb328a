#pragma once

#include <netinet/in.h>

#include "agent/flags.h"
#include "agent/upgrade.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// What a session is started with.
struct ThreadParams {
  int socket;       ///< accepted connection; the session closes it
  in_addr address;  ///< the peer
};

/// Looks the command up, checks the rights of administrative commands and has it carried out.
/// @param request  a parsed request: its text, which is used up, and its session key
/// @param flags    where "QUIT" and "ReloadApp" raise their words; the caller decides when they
///                 take effect
/// @return 1 when the command was recognised (refusals included), 0 when the request was unknown,
///         empty or incomplete; `reply` is filled in either case. Any thread.
int ProcessVxRequest(VxRequest& request, QovReply& reply, TQovFlags& flags, ThreadParams params,
                     UpgradeRec& upgrade);
