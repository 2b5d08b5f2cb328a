#include "agent/listener.h"

#include <fcntl.h>
#include <unistd.h>

#include "config/settings.h"
#include "core/iplib.h"
#include "core/message.h"

int Listen(unsigned int& addressLength, String& error) {
  const TSettingsView settings = CurrentSettings();
  const char* host = settings->host.Empty() ? nullptr : settings->host.CStr();
  for (int i = 0; i < 3; ++i) {
    const int socket = TcpListen(host, settings->port, &addressLength, error);
    if (socket != 0) return socket;
    sleep(1);
  }
  return 0;
}

bool TListener::Open(String& error) {
  Close();
  const int port = CurrentSettings()->port;
  unsigned int addressLength = 0;
  const int socket = Listen(addressLength, error);
  if (socket == 0) return false;
  // A connection that is gone again by the time of the accept must not hold the loop.
  fcntl(socket, F_SETFL, O_NONBLOCK);
  socket_.Reset(socket);
  port_ = port;
  return true;
}

bool TListener::FollowPort() {
  if (CurrentSettings()->port == port_) return true;
  const int oldPort = port_;
  String error;
  if (Open(error)) {
    showmessage("Server port switching .. Ok\n", kNoPeer, msgOk, 0);
    return true;
  }
  showmessage("Error: cannot open new port for listening\n", kNoPeer, msgFail, 0);
  ChangeSettings([=](TQovSettings& settings) { settings.port = oldPort; });
  if (!Open(error)) {
    showmessage("Cannot open original port either. Terminating\n", kNoPeer, msgFail, 0);
    return false;
  }
  showmessage("Return to original port\n", kNoPeer, msgFail, 0);
  return true;
}
