#include "scenario/Ubx.h"

#include <cstdio>

namespace test {

std::string ubx(uint8_t cls, uint8_t id, const std::string& payload) {
  std::string frame{static_cast<char>(cls), static_cast<char>(id), static_cast<char>(payload.size() & 0xFF),
                    static_cast<char>(payload.size() >> 8)};
  frame += payload;
  uint8_t a = 0;
  uint8_t b = 0;
  for (const char c : frame) {
    a = static_cast<uint8_t>(a + static_cast<uint8_t>(c));
    b = static_cast<uint8_t>(b + a);
  }
  return "\xB5\x62" + frame + static_cast<char>(a) + static_cast<char>(b);
}

std::string bytes(const std::string& hex) {
  std::string out;
  int digits = 0;
  unsigned value = 0;
  for (const char c : hex) {
    if (c == ' ') continue;
    value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : c - 'A' + 10);
    if (++digits % 2 != 0) continue;
    out.push_back(static_cast<char>(value));
    value = 0;
  }
  return out;
}

std::string kind(const std::string& frame) {
  char text[24];
  static_cast<void>(std::snprintf(text, sizeof text, "%02X %02X%s", static_cast<uint8_t>(frame[2]),
                                  static_cast<uint8_t>(frame[3]), frame.size() == 8 ? " poll" : ""));
  return text;
}

}  // namespace test
