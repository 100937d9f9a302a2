// Stands in for the system's log: preloaded into a program, it connects the program to the socket that
// SATNAVD_TEST_LOG names whenever it wants /dev/log.

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t length) {
  static auto* const next = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  const char* const path = getenv("SATNAVD_TEST_LOG");
  sockaddr_un other{};
  if (path != nullptr && address->sa_family == AF_UNIX) {
    std::memcpy(&other, address, length < sizeof other ? length : sizeof other);
    if (std::strcmp(static_cast<const char*>(other.sun_path), _PATH_LOG) == 0) {
      std::strncpy(static_cast<char*>(other.sun_path), path, sizeof other.sun_path - 1);
      return next(descriptor, reinterpret_cast<const sockaddr*>(&other), sizeof other);
    }
  }
  return next(descriptor, address, length);
}
