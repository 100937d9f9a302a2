#include "tools/common/StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ecu::koru::tool {

bool StandardOutput::write(std::string_view text) {
  if (m_error != 0) return false;
  errno = 0;
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (!written) m_error = errno != 0 ? errno : EIO;
  return written;
}

std::string StandardOutput::problem() const {
  const int error = m_error;
  return error == 0 || error == EPIPE ? std::string() : std::string("cannot write: ") + std::strerror(error);
}

}  // namespace ecu::koru::tool
