#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The screen as text, independent of the terminal.
namespace ecu::koru::tap::live {

enum class Style : uint8_t { plain, title, alert, selected, label, dim, good, warn, bad };

/// A piece of a row. Its text is printable ASCII, so its length is its width; of a bar each '#' is a block.
struct Span {
  std::string text;
  Style style = Style::plain;
  bool bar = false;

  bool operator==(const Span&) const = default;
};

/// One row of the screen, from left to right. Whatever is added becomes printable ASCII.
class Row {
 public:
  Row& add(std::string_view text, Style style = Style::plain);
  Row& bar(size_t length, Style style);
  Row& add(const Row& row);
  /// Adds text cut or filled to a width; a positive one fills at the right, a negative one at the left.
  Row& column(std::string_view text, int width, Style style = Style::plain);
  /// Fills with blanks up to a width, or cuts what is longer.
  Row& fit(size_t width, Style style = Style::plain);

  [[nodiscard]] size_t width() const { return m_width; }
  [[nodiscard]] const std::vector<Span>& spans() const { return m_spans; }
  [[nodiscard]] std::string text() const;
  bool operator==(const Row&) const = default;

 private:
  std::vector<Span> m_spans;
  size_t m_width = 0;
};

using Rows = std::vector<Row>;

}  // namespace ecu::koru::tap::live
