#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Builds a receiver's messages independently of the service's code.
namespace test {

/// Returns bytes from hexadecimal digits. Blanks are allowed between bytes.
inline std::string bytes(std::string_view digits) {
  std::string result;
  for (size_t i = 0; i < digits.size(); i += digits[i] == ' ' ? 1 : 2) {
    if (digits[i] != ' ')
      result += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
  }
  return result;
}

/// Returns "$" body "*" checksum CR LF.
inline std::string nmea(std::string_view body) {
  unsigned sum = 0;
  for (const char c : body) sum ^= static_cast<unsigned char>(c);
  const std::string_view digits = "0123456789ABCDEF";
  return "$" + std::string(body) + "*" + digits[sum >> 4 & 0xF] + digits[sum & 0xF] + "\r\n";
}

inline std::string ubx(uint8_t message_class, uint8_t id, std::string_view payload = {}) {
  std::string frame = "\xB5\x62";
  for (const size_t byte : {size_t{message_class}, size_t{id}, payload.size() & 0xFF, payload.size() >> 8})
    frame += static_cast<char>(byte);
  frame += payload;
  uint8_t a = 0;
  uint8_t b = 0;
  for (const char c : frame.substr(2)) b = static_cast<uint8_t>(b + (a = static_cast<uint8_t>(a + c)));
  return frame + static_cast<char>(a) + static_cast<char>(b);
}

}  // namespace test
