#include "sim/gnss/Line.h"

#include <cstring>

namespace ecu::koru::sim {

constexpr size_t PORT_KEEPS = 65536;  // bytes that the host has not read yet

int64_t Line::duration_ns(size_t bytes) const {
  if (m_baud == AT_ONCE) return 0;
  return static_cast<int64_t>(bytes) * 10 * 1'000'000'000 / static_cast<int64_t>(m_baud);
}

void Line::send(std::string_view bytes, int64_t start_ns) {
  if (bytes.empty()) return;
  if (m_runs.empty() || start_ns > m_free_ns) {
    m_runs.push_back({std::max(start_ns, m_free_ns), std::string(bytes)});
  } else {
    m_runs.back().bytes += bytes;
  }
  m_free_ns = end_of_byte_ns(m_runs.back(), m_runs.back().bytes.size());
}

void Line::advance_to(int64_t now_ns) {
  while (!m_runs.empty()) {
    Run& run = m_runs.front();
    while (run.sent < run.bytes.size() && end_of_byte_ns(run, run.sent + 1) <= now_ns) {
      arrive(end_of_byte_ns(run, run.sent), static_cast<uint8_t>(run.bytes[run.sent]));
      ++run.sent;
    }
    if (run.sent < run.bytes.size()) break;
    m_runs.pop_front();
  }
  if (!m_mistuned || !m_open) return;
  const int64_t next_start_ns = m_runs.empty() ? now_ns : end_of_byte_ns(m_runs.front(), m_runs.front().sent);
  m_mistuned->idle(std::min(now_ns, next_start_ns), m_arrived);
}

int64_t Line::next_byte_ns() const {
  return m_runs.empty() ? INT64_MAX : end_of_byte_ns(m_runs.front(), m_runs.front().sent + 1);
}

int64_t Line::run_end_ns() const {
  return m_runs.empty() ? INT64_MAX : end_of_byte_ns(m_runs.front(), m_runs.front().bytes.size());
}

void Line::arrive(int64_t start_ns, uint8_t byte) {
  ++m_bytes_sent;
  if (!m_open || m_host_baud == 0 || available() >= PORT_KEEPS) {
    ++m_bytes_lost;
  } else if (m_mistuned) {
    m_mistuned->byte(start_ns, byte, m_arrived);
  } else {
    m_arrived.push_back(static_cast<char>(byte));
  }
}

void Line::set_baud(unsigned baud) {
  if (baud == m_baud) return;
  m_baud = baud;
  restart_port();
}

void Line::cut(int64_t now_ns) {
  advance_to(now_ns);
  m_runs.clear();
  m_free_ns = now_ns;
}

void Line::set_host_baud(unsigned baud) {
  if (baud == m_host_baud) return;
  m_host_baud = baud;
  restart_port();
}

void Line::restart_port() {
  m_mistuned.reset();
  if (m_host_baud != 0 && m_host_baud != m_baud) m_mistuned.emplace(m_baud, m_host_baud);
}

void Line::set_open(bool open) {
  if (open == m_open) return;
  m_open = open;
  restart_port();
  drop_arrived();
}

void Line::drop_arrived() {
  m_bytes_lost += available();
  m_arrived.clear();
  m_read = 0;
}

size_t Line::read(std::span<uint8_t> out) {
  const size_t count = std::min(out.size(), available());
  if (count > 0) std::memcpy(out.data(), m_arrived.data() + m_read, count);
  m_read += count;
  if (m_read == m_arrived.size() || m_read >= PORT_KEEPS) {
    m_arrived.erase(0, m_read);
    m_read = 0;
  }
  return count;
}

}  // namespace ecu::koru::sim
