// Socket buffer sizes. They are those of a real socket pair that the current session has for
// itself.
//
// The buffers have the operating system's names, "SO_SNDBUF" and "SO_RCVBUF". Linux keeps twice the
// size that it is given, half of it for its own book-keeping, and answers the double; here the size
// is the one that can be given, so that what was set is what is answered. Sizes outside the
// kernel's limits are moved to the limit (net.core.wmem_max, net.core.rmem_max), as for any socket,
// and the answer tells.
#include <kvfile/platform/host.h>

#include "interface/sessions.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

using kvhost::interface::Session;

struct SocketBuffer {
  const char* name;
  int option;
};

constexpr SocketBuffer SOCKET_BUFFERS[] = {{"SO_SNDBUF", SO_SNDBUF}, {"SO_RCVBUF", SO_RCVBUF}};

struct ErrorText {
  char* text;
  size_t size;
};

bool failWithErrno(const char* what, const ErrorText& error) {
  char reason[ERRMSG_MAX_TXT];
  HostStrerror(errno, reason, sizeof reason);
  std::snprintf(error.text, error.size, "%s: %s", what, reason);
  return false;
}

const SocketBuffer* findBuffer(const char* name, const ErrorText& error) {
  for (const SocketBuffer& each : SOCKET_BUFFERS) {
    if (std::strcmp(name, each.name) == 0) return &each;
  }
  std::snprintf(error.text, error.size, "unknown socket buffer '%s', must be %s or %s", name,
                SOCKET_BUFFERS[0].name, SOCKET_BUFFERS[1].name);
  return nullptr;
}

bool findSocket(int* socket, const ErrorText& error) {
  Session* session = kvhost::interface::currentSession();
  if (session == nullptr) {
    std::snprintf(error.text, error.size, "no session is current on this thread");
    return false;
  }
  if (session->sockets[0] < 0 &&
      socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, session->sockets) != 0) {
    session->sockets[0] = -1;
    return failWithErrno("cannot make a socket pair", error);
  }
  *socket = session->sockets[0];
  return true;
}

bool fetchSize(const char* name, int* size, const ErrorText& error) {
  const SocketBuffer* buffer = findBuffer(name, error);
  int socket = -1;
  if (buffer == nullptr || !findSocket(&socket, error)) return false;
  int doubled = 0;
  socklen_t length = sizeof doubled;
  if (getsockopt(socket, SOL_SOCKET, buffer->option, &doubled, &length) != 0) {
    return failWithErrno("cannot ask the socket buffer size", error);
  }
  *size = doubled / 2;
  return true;
}

bool setSize(const char* name, int size, const ErrorText& error) {
  const SocketBuffer* buffer = findBuffer(name, error);
  int socket = -1;
  if (buffer == nullptr || !findSocket(&socket, error)) return false;
  if (setsockopt(socket, SOL_SOCKET, buffer->option, &size, sizeof size) == 0) return true;
  return failWithErrno("cannot set the socket buffer size", error);
}

}  // namespace

extern "C" {

int KciSupFetchKciSocketBufSize(const char* name, char* errBuf, size_t errBufSize) {
  int size = 0;
  return fetchSize(name, &size, {errBuf, errBufSize}) ? size : -1;
}

BoolType KciSupSetKciSocketBufSize(const char* name, int size, char* errBuf, size_t errBufSize) {
  return setSize(name, size, {errBuf, errBufSize}) ? TRUE : FALSE;
}

}  // extern "C"
