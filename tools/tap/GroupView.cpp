#include "tools/tap/GroupView.h"

#include <algorithm>
#include <cmath>

#include "platform/base/Logging.h"
#include "tools/tap/CanFrame.h"
#include "tools/tap/ValueTexts.h"

namespace ecu::koru::tap {

namespace {

using rt::SignalStatus;

constexpr double MAX_EXACT = 9'007'199'254'740'992;  // 2^53
constexpr int MIN_DECIMALS = 3;
constexpr int MAX_DECIMALS = 15;

const char* status_text(SignalStatus status) {
  switch (status) {
    case SignalStatus::VALID:
      return "valid";
    case SignalStatus::NOT_AVAILABLE:
      return "not available";
    case SignalStatus::ERROR:
      return "error";
    case SignalStatus::OUT_OF_RANGE:
      return "out of range";
  }
  return "";
}

Json value_json(const rt::SignalGroup& group, const rt::Signal& signal) {
  if (signal.status() != SignalStatus::VALID) return nullptr;
  if (group.definition().raw_bytes && group.bytes().size() > sizeof(uint64_t)) return nullptr;
  const auto& scale = signal.definition().scale;
  if (scale.factor() == 1 && scale.offset() == 0) return signal.raw();
  const double value = signal.value_scaled();
  if (std::trunc(value) == value && std::fabs(value) <= MAX_EXACT) return static_cast<int64_t>(value);
  return value;
}

/// Returns the decimals that distinguish the physical values of neighbouring raw values; 3 to 15.
int decimals_of(const rt::SignalScale& scale) {
  const double wanted = std::ceil(-std::log10(std::fabs(scale.factor())));
  return static_cast<int>(std::clamp<double>(wanted, MIN_DECIMALS, MAX_DECIMALS));
}

/// Returns the value rounded to decimals_of() its scale, without trailing zeros.
std::string number_text(const rt::Signal& signal) {
  const auto& scale = signal.definition().scale;
  if (scale.factor() == 1 && scale.offset() == 0) return logging::text(signal.raw());
  std::string out = decimal(signal.value_scaled(), decimals_of(scale));
  out.erase(out.find_last_not_of('0') + 1);
  if (out.ends_with('.')) out.pop_back();
  return out == "-0" ? "0" : out;
}

/// Returns "7631 "v1"".
std::string raw_bytes_text(const rt::SignalGroup& group) {
  const auto bytes = group.bytes();
  std::string out = hex_text(bytes);
  const bool is_text = bytes.size() > 1 && std::all_of(bytes.begin(), bytes.end(),
                                                       [](uint8_t b) { return b >= 0x20 && b <= 0x7E; });
  if (is_text) out.append(" \"").append(bytes.begin(), bytes.end()).append("\"");
  return out;
}

}  // namespace

Json group_json(const rt::SignalGroup& group) {
  const auto& definition = group.definition();
  Json out = {{"name", safe_text(definition.name)}};
  if (definition.can_id != 0) {
    out["can_id"] = can_id_text(definition.can_id, definition.extended);
  }
  Json& signals = out["signals"] = Json::object();
  for (const rt::Signal& signal : group.signals()) {
    Json& each = signals[safe_text(signal.name())];
    each["value"] = value_json(group, signal);
    if (!signal.unit().empty()) each["unit"] = safe_text(signal.unit());
    each["status"] = status_text(signal.status());
    if (const auto text = ValueTexts::in_use().find(group, signal); !text.empty())
      each["text"] = safe_text(text);
    each["raw"] = hex_text(signal.data());
  }
  return out;
}

std::string value_text(const rt::SignalGroup& group, const rt::Signal& signal) {
  if (group.definition().raw_bytes) return logging::escaped(raw_bytes_text(group));
  const SignalStatus status = signal.status();
  if (status != SignalStatus::VALID) return status_text(status);
  const std::string_view text = ValueTexts::in_use().find(group, signal);
  std::string out = text.empty() ? number_text(signal) : std::string(text);
  if (!signal.unit().empty()) out += " " + signal.unit();
  return logging::escaped(out);
}

std::string group_text(const rt::SignalGroup& group) {
  const auto& definition = group.definition();
  std::string out;
  const auto signals = group.signals();
  if (signals.size() != 1 || signals[0].name() != definition.name)
    out.append(logging::escaped(definition.name)).append("  ");
  for (const rt::Signal& signal : signals)
    out.append(logging::escaped(signal.name())).append(" ").append(value_text(group, signal)).append("  ");
  if (definition.raw_bytes) return out.substr(0, out.size() - 2);
  return out + "raw " + hex_text(group.bytes());
}

}  // namespace ecu::koru::tap
