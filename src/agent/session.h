#pragma once

#include <netinet/in.h>

/// What a session is started with.
struct ThreadParams {
  int socket;       ///< accepted connection; the session closes it
  in_addr address;  ///< the peer
};

/// Thread body of one session: one request, one reply (or an upgrade's data and its second reply).
/// Takes over the ThreadParams block, made with new, and its socket.
void* ClientExecute(void* block);
