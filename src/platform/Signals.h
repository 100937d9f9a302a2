#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Transport.h"

/// Real-time signals: named values packed into a group, one group a topic, carried as an enveloped
/// pb::RtSignal.
namespace ecu::koru::rt {

/// One signal's raw bytes as they stand in the group.
class Signal {
 public:
  Signal(std::string name, std::vector<uint8_t> data) : m_name(std::move(name)), m_data(std::move(data)) {}
  [[nodiscard]] const std::string& name() const { return m_name; }
  [[nodiscard]] const std::vector<uint8_t>& data() const { return m_data; }

 private:
  friend class SignalGroup;
  std::string m_name;
  std::vector<uint8_t> m_data;
};

/// The signals of one topic. A default-made group is not valid. A plain value; one thread at a time.
class SignalGroup {
 public:
  SignalGroup() = default;
  SignalGroup(std::string topic, std::vector<Signal> signals)
      : m_topic(std::move(topic)), m_signals(std::move(signals)) {}

  [[nodiscard]] bool is_valid() const { return !m_signals.empty(); }
  [[nodiscard]] const std::string& topic() const { return m_topic; }
  /// Null when the group has no such signal.
  [[nodiscard]] const Signal* signal(std::string_view name) const;
  /// The signal's raw bytes. False when there is no such signal or they do not fit.
  [[nodiscard]] bool set_signal_data(std::string_view name, const std::vector<uint8_t>& data);
  [[nodiscard]] const std::vector<Signal>& signals() const { return m_signals; }

 private:
  std::string m_topic;
  std::vector<Signal> m_signals;
};

/// What unpack() gives.
struct UnpackResult {
  bool success = false;
  SignalGroup group;
  std::string error;  ///< why it failed
};

/// Knows the groups of all topics. Any thread.
class SignalAdapter {
 public:
  [[nodiscard]] static SignalAdapter& instance();

  /// A new group for the topic; not valid when the topic has none. A topic "rt/system/NAME" is one raw signal
  /// NAME of up to 64 bytes.
  [[nodiscard]] SignalGroup create_sg(const std::string& topic) const;
  /// The enveloped group; nothing when it cannot be packed.
  [[nodiscard]] std::optional<com::Message> pack(const SignalGroup& group) const;
  /// The group of a message of the topic. Fails for a topic without a group, a broken envelope and a payload
  /// that is too short or too long.
  [[nodiscard]] UnpackResult unpack(const std::string& topic, const com::Message& message) const;
};

}  // namespace ecu::koru::rt
