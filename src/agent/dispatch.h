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

/// Looks the command of a parsed request up, checks the right to it and has it carried out; the
/// request's text is used up. "QUIT" and "ReloadApp" raise their words in `flags`: the caller
/// decides when they take effect. Returns 1 when the command was recognised (refusals included), 0
/// when it was unknown, empty or incomplete; `reply` is filled in either case. Any thread.
int ProcessVxRequest(VxRequest& request, QovReply& reply, TQovFlags& flags, ThreadParams params,
                     UpgradeRec& upgrade);
