#include "sim/gnss/LineEnds.h"

#include "sim/gnss/UbxFrame.h"

namespace ecu::koru::sim {
namespace {

bool is_printable(char c) {
  return c >= 0x20 && c <= 0x7E;
}

}  // namespace

LineEnds find_line_ends(std::string_view bytes) {
  LineEnds ends;
  for (size_t at = 0; at < bytes.size();) {
    const std::string_view rest = bytes.substr(at);
    if (const size_t size = intact_frame_size(rest); size > 0) {
      at += size;
    } else if (rest.front() == '$') {
      while (at < bytes.size() && is_printable(bytes[at])) ++at;
      const bool has_cr = bytes.substr(at).starts_with("\r\n");
      if (!has_cr && !bytes.substr(at).starts_with('\n')) continue;
      ++ends.lines;
      if (!has_cr) ends.without_cr.push_back(at);
    } else {
      ++at;
    }
  }
  return ends;
}

std::string with_crlf(std::string_view bytes, const LineEnds& ends) {
  std::string result;
  result.reserve(bytes.size() + ends.without_cr.size());
  size_t from = 0;
  for (const size_t feed : ends.without_cr) {
    result.append(bytes.substr(from, feed - from)).push_back('\r');
    from = feed;
  }
  return result.append(bytes.substr(from));
}

}  // namespace ecu::koru::sim
