#include "sim/gnss/Trace.h"

#include "sim/gnss/Text.h"

namespace ecu::koru::sim {

void Trace::written(std::span<const uint8_t> bytes, int64_t monotonic_ns) {
  constexpr size_t LONGEST = 1024;  // longer text is not a sentence
  for (const uint8_t byte : bytes) {
    if (byte == '$') {
      m_sentence = '$';
    } else if (!m_sentence.empty()) {
      m_sentence.push_back(static_cast<char>(byte));
      if (byte == '\n') finish(monotonic_ns);
      if (m_sentence.size() > LONGEST) m_sentence.clear();
    }
  }
}

void Trace::finish(int64_t monotonic_ns) {
  if (m_sentence.ends_with("\r\n")) m_sentence.resize(m_sentence.size() - 2);
  std::string line = std::to_string(monotonic_ns) + ' ';
  for (const char c : m_sentence) {
    if (c >= 0x20 && c < 0x7F) {
      line += c;
    } else {
      line += "\\x" + hex(static_cast<uint8_t>(c), 2);
    }
  }
  write_line(m_file, m_name, line);
  m_sentence.clear();
}

}  // namespace ecu::koru::sim
