#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::sim {

/// A UBX frame, as its length says, or a single other byte.
struct HostFrame {
  size_t offset;  ///< in the host's stream
  std::string bytes;
};

/// Cuts a host's stream into frames, which do not depend on the pieces in which it comes.
class FrameCutter {
 public:
  /// Appends the frames that are complete now.
  void add(std::string_view bytes, std::vector<HostFrame>& frames);
  /// Returns how many bytes were cut so far, without those of a frame that is not complete.
  [[nodiscard]] size_t offset() const { return m_offset; }

 private:
  std::string m_held;
  size_t m_offset = 0;
};

/// Compares the frames that a host sends with those that it sent when its link was recorded. A frame that is
/// left out, added or changed is one difference; the next frames are compared with those that follow it.
class HostComparison {
 public:
  /// An empty text: nothing was expected or found.
  struct Difference {
    size_t offset;  ///< in what was recorded, of the first byte that differs
    std::string expected, found;
  };
  using OnDifference = std::function<void(const Difference&)>;

  HostComparison(std::vector<HostFrame> expected, OnDifference on_difference)
      : m_expected(std::move(expected)), m_on_difference(std::move(on_difference)) {}

  void hear(std::string_view bytes);
  /// Counts the frames before that one as left out if they have not come.
  void give_up_before(size_t index);

  /// Returns the index of the first frame that has not come yet.
  [[nodiscard]] size_t next() const { return m_next; }
  [[nodiscard]] size_t heard() const { return m_heard; }
  [[nodiscard]] size_t differences() const { return m_differences; }

 private:
  void compare(const HostFrame& frame);
  void differ(const std::string& expected, const std::string& found);

  std::vector<HostFrame> m_expected;
  OnDifference m_on_difference;
  FrameCutter m_cutter;
  size_t m_next = 0;
  size_t m_heard = 0;  // frames
  size_t m_differences = 0;
};

/// Returns the difference in one line, such as "at byte 8: expected B5 62 ..., found nothing".
[[nodiscard]] std::string text_of(const HostComparison::Difference& difference);

}  // namespace ecu::koru::sim
