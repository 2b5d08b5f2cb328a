// What a request must cost: a server that has nothing but the agent's packet codec and threads that
// are used again. Answers every packet with the sizes of the root file system: bareserver PORT
#include <stdlib.h>
#include <sys/socket.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "checks/files/diskfolder.h"
#include "core/iplib.h"
#include "core/owned.h"
#include "protocol/reply.h"
#include "protocol/request.h"

namespace {

constexpr char kPassword[] = "test password";  // as the load program sends it

struct TWorker {
  std::condition_variable called;
  std::optional<int> socket;  // under mutex
};

std::mutex mutex;
std::vector<TWorker*> idle;  // under mutex; none ever ends

void Serve(int socket) {
  const TFd owner(socket);
  static const TCipherKey password(kPassword);
  VxRequest request;
  char chunk[1024];
  while (request.WholePacket() == 0) {
    const ssize_t got = recv(socket, chunk, sizeof chunk, 0);
    if (got <= 0) return;
    request.AddData(chunk, static_cast<int>(got));
  }
  if (request.ParseInitRequest(kPassword, password, {}) == 0) return;
  QovReply reply;
  reply.InitPacket(nullptr, request.SessionCipher());
  double sizes[3] = {};
  GetUNCDriveInfo("/", sizes[0], sizes[1], sizes[2]);
  reply.SetResult(kResultDone);
  for (const double size : sizes) reply.AddIntParam(size);
  reply.FinalizePacket();
  send(socket, reply.Data(), static_cast<size_t>(reply.Length()), MSG_NOSIGNAL);
  shutdown(socket, SHUT_RDWR);
}

void Work(TWorker* self) {
  for (;;) {
    Serve(*self->socket);
    std::unique_lock<std::mutex> lock(mutex);
    self->socket.reset();
    idle.push_back(self);
    self->called.wait(lock, [self] { return self->socket.has_value(); });
  }
}

void Give(int socket) {
  std::unique_lock<std::mutex> lock(mutex);
  TWorker* worker = idle.empty() ? new TWorker : idle.back();
  worker->socket = socket;
  if (idle.empty()) {
    std::thread(&Work, worker).detach();
    return;
  }
  idle.pop_back();
  lock.unlock();
  worker->called.notify_one();
}

}  // namespace

int main(int argc, char** argv) {
  Twofish_initialise();
  String error;
  const int listener = TcpListen("127.0.0.1", argc > 1 ? atoi(argv[1]) : 0, nullptr, error);
  for (int socket;
       listener > 0 && (socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
    Give(socket);
  return 1;
}
