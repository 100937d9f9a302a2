#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/gnss/Receiver.h"
#include "sim/gnss/Utc.h"
#include "support/Frames.h"

/// What the tests of the simulated receiver's commands share.
namespace ecu::koru::sim {

using Texts = std::vector<std::string>;

inline std::string bytes_of(const std::string& digits) {
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += digits[i] == ' ' ? 1 : 2)
    if (digits[i] != ' ') bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

inline std::string digits_of(const std::string& bytes) {
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    digits += {"0123456789ABCDEF"[byte >> 4U], "0123456789ABCDEF"[byte & 15U]};
  }
  return digits;
}

/// "0600 01 00": class, id and payload in hexadecimal, blanks anywhere.
inline std::string frame_of(const std::string& digits) {
  const std::string bytes = bytes_of(digits);
  return test::ubx(static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), bytes.substr(2));
}

/// The host's end of a receiver: sends commands and takes apart what comes.
struct Host {
  explicit Host(const ReceiverOptions& options = {}) : receiver(options) {}
  explicit Host(const std::string& faults) : Host(with_faults(faults)) {}
  static ReceiverOptions with_faults(const std::string& faults) {
    ReceiverOptions options;
    options.faults = parse_faults(faults);
    return options;
  }

  void write(const std::string& bytes) {
    receiver.write({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  }
  std::string read_until(int64_t until_us) {
    receiver.advance_to(now_us = until_us);
    std::string bytes(receiver.available(), '\0');
    receiver.read({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
    return bytes;
  }
  /// Lets time pass; every byte must belong to a sentence or to a UBX message with a right checksum.
  void listen(int64_t for_us) {
    rest += read_until(now_us + for_us);
    sentences.clear();
    frames.clear();
    while (!rest.empty()) {
      const bool sentence = rest[0] == '$';
      const size_t feed = rest.find("\r\n");
      const size_t size = sentence ? feed : rest.size() < 6 ? 6 : 8U + low(4) + 256U * low(5);
      if (size > rest.size() - (sentence ? 2 : 0)) return;  // its end comes later
      if (sentence) {
        sentences.push_back(rest.substr(0, size));
      } else {
        frames.push_back(digits_of(rest.substr(2, 2) + rest.substr(6, size - 8)));
        ASSERT_EQ(digits_of(rest.substr(0, size)), digits_of(frame_of(frames.back())));
      }
      rest.erase(0, size + (sentence ? 2 : 0));
    }
  }
  [[nodiscard]] size_t low(size_t at) const { return static_cast<uint8_t>(rest[at]); }
  /// What answers a command within half a second of silence.
  Texts ask(const std::string& digits, int64_t for_us = 500'000) {
    write(frame_of(digits));
    listen(for_us);
    return frames;
  }
  /// The kinds of what came, without the talkers, such as "RMC GGA GSA GSA GST".
  [[nodiscard]] std::string kinds() const {
    std::string all;
    for (const std::string& sentence : sentences) all.append(all.empty() ? "" : " ").append(sentence, 3, 3);
    return all;
  }

  Receiver receiver;
  int64_t now_us = 0;
  std::string rest;
  Texts sentences, frames;
};

}  // namespace ecu::koru::sim
