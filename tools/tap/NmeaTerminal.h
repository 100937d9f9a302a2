#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tap/NmeaFeed.h"

namespace ecu::koru::tap {

/// Writes the sentences to a pseudo-terminal that looks like a receiver's serial port, with a link to it.
/// Sentences that nobody reads are dropped, so that the next reader does not take them for new ones.
class NmeaTerminal final : public NmeaFeed {
 public:
  explicit NmeaTerminal(std::string link) : m_link(std::move(link)) {}
  /// Removes the link.
  ~NmeaTerminal() override;
  NmeaTerminal(const NmeaTerminal&) = delete;
  NmeaTerminal& operator=(const NmeaTerminal&) = delete;

  /// Creates the terminal and the link. Replaces a link to a pseudo-terminal, which an earlier run may have
  /// left behind, and no other file. Returns false if that fails.
  [[nodiscard]] bool open() override;
  void add_waits(std::vector<pollfd>& waits) const override;

 private:
  void hand_over(std::string_view sentences) override;
  /// Creates a raw terminal. Returns false with errno if that fails.
  [[nodiscard]] bool create();
  /// Returns true if a process has the terminal open.
  [[nodiscard]] bool has_reader() const;
  void discard_received() const;
  /// Discards what the readers have not read.
  void discard_unread() const;
  /// Returns false if not all fitted.
  [[nodiscard]] bool write(std::string_view sentences) const;

  const std::string m_link;
  std::string m_path;  // of the end that readers open; empty before open()
  std::unique_ptr<tool::Descriptor> m_master;
  bool m_linked = false;
  bool m_has_reader = false;  // at the last look
};

}  // namespace ecu::koru::tap
