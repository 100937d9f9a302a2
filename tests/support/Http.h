#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <tuple>

#include "support/Support.h"

namespace test {

/// Sends a request, or a part of one, and returns what comes until the server closes the connection.
inline std::string answer(int socket, const std::string& request) {
  std::ignore = send(socket, request.data(), request.size(), MSG_NOSIGNAL);
  std::string out;
  char piece[4096];
  for (ssize_t count; (count = recv(socket, piece, sizeof piece, 0)) > 0;)
    out.append(piece, static_cast<size_t>(count));
  close(socket);
  return out;
}

inline std::string get(uint16_t port, const std::string& path) {
  return answer(connect_to(port), "GET " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
}

}  // namespace test
