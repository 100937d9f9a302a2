#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/tap/Recording.h"
#include "tools/tap/live/Model.h"
#include "tools/tap/live/Text.h"

/// Lays the model out on the screen. Pure functions.
namespace ecu::koru::tap::live {

inline constexpr size_t MIN_WIDTH = 80;
inline constexpr size_t MIN_HEIGHT = 24;

enum class Page : uint8_t { fix, sky, can, bus };
inline constexpr std::array PAGES{Page::fix, Page::sky, Page::can, Page::bus};

/// What is shown of the model, and when.
struct View {
  size_t width = MIN_WIDTH;
  size_t height = MIN_HEIGHT;
  Page page = Page::fix;
  size_t scroll = 0;  ///< rows of the page above the screen
  bool paused = false;
  bool connected = true;
  std::string source{};  ///< the broker's "HOST:PORT", or the name of the recording
  bool recorded = false;
  bool over = false;  ///< the recording has been played to its end
  Moment now{};
};

/// Returns `height` rows of `width` characters, whatever the size: below 80x24 they say so.
[[nodiscard]] Rows layout(const Model& model, const View& view);

/// Returns how far the page can be scrolled.
[[nodiscard]] size_t rows_beyond(const Model& model, const View& view);

// The pages without title, state and keys, in any number of rows; their width is that of the view.
[[nodiscard]] Rows fix_page(const Model& model, const View& view);
[[nodiscard]] Rows sky_page(const Model& model, const View& view);
[[nodiscard]] Rows can_page(const Model& model, const View& view);
[[nodiscard]] Rows bus_page(const Model& model, const View& view);

/// Returns rows with state, age and reason of the fix.
[[nodiscard]] Rows state_rows(const Model& model, const View& view);

/// Returns "0.3 s", "12 s", "5 min", "3 h".
[[nodiscard]] std::string duration_text(uint64_t ns);

/// Returns the time since then as duration_text().
[[nodiscard]] std::string age_text(const View& view, uint64_t boot_ns);

}  // namespace ecu::koru::tap::live
