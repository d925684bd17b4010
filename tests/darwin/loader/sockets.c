// Stand-ins for calls about sockets, which only the unit tests make.

#define _GNU_SOURCE
#include <errno.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"

static void RequireUnix(int family, int type) {
  // These have the same numbers on both systems.
  if (family != AF_UNIX || (type != SOCK_STREAM && type != SOCK_DGRAM)) Die("socket(%d, %d) has no counterpart", family, type);
}

static int d_socket(int family, int type, int protocol) {
  RequireUnix(family, type);
  return CHECKED(int, socket(family, type, protocol));
}

static int d_socketpair(int family, int type, int protocol, int ends[2]) {
  RequireUnix(family, type);
  return CHECKED(int, socketpair(family, type, protocol, ends));
}

// The length that the caller gives includes all of sun_path. The path ends in a zero.
static int d_bind(int socket, const struct d_sockaddr_un* address, unsigned size) {
  if (size != sizeof *address || address->sun_family != AF_UNIX) Die("bind() is given an address of another family");
  struct sockaddr_un own = {.sun_family = AF_UNIX};
  memcpy(own.sun_path, address->sun_path, strnlen(address->sun_path, sizeof address->sun_path));
  return CHECKED(int, bind(socket, (const struct sockaddr*)&own, sizeof own));
}

static int d_setsockopt(int socket, int level, int option, const void* value, unsigned size) {
  if (level != D_SOL_SOCKET || (option != D_SO_SNDBUF && option != D_SO_RCVBUF)) {
    Die("setsockopt(%d, %#x) has no counterpart", level, (unsigned)option);
  }
  return CHECKED(int, setsockopt(socket, SOL_SOCKET, option == D_SO_SNDBUF ? SO_SNDBUF : SO_RCVBUF, value, size));
}

static ssize_t d_recv(int socket, void* bytes, size_t size, int flags) {
  if (flags & ~D_MSG_DONTWAIT) Die("recv flags %#x have no counterpart", (unsigned)flags);
  return CHECKED(ssize_t, recv(socket, bytes, size, flags & D_MSG_DONTWAIT ? MSG_DONTWAIT : 0));
}

const struct StandIn kSocketStandIns[] = {
    OWN(socket), OWN(socketpair), OWN(bind), OWN(setsockopt), OWN(recv),
    {NULL, NULL},
};
