#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/base/Keys.h"
#include "platform/com/Transport.h"
#include "platform/rt/SignalDatabase.h"

/// Real-time signals: named values packed into one group per topic, carried as an enveloped pb::RtSignal.
namespace ecu::koru::rt {

class SignalGroup;

/// One signal of a group. It shows what the group holds now and must not outlive it.
class Signal {
 public:
  [[nodiscard]] const std::string& name() const { return m_definition->name; }
  /// Returns the unit of the physical value; may be empty.
  [[nodiscard]] const std::string& unit() const { return m_definition->unit; }
  [[nodiscard]] const SignalDefinition& definition() const { return *m_definition; }
  /// Returns the signal's own bits or, for a raw system signal, the first 8 bytes, lowest first.
  [[nodiscard]] uint64_t raw() const;
  /// A raw system signal and a time stamp are always VALID.
  [[nodiscard]] SignalStatus status() const { return m_definition->status(raw()); }
  /// Returns the physical value, or NaN if the status is not VALID.
  [[nodiscard]] double value_scaled() const;
  /// Returns the raw value's (width + 7) / 8 bytes, lowest first; all bytes of a raw system signal.
  [[nodiscard]] std::vector<uint8_t> data() const;

 private:
  friend class SignalGroup;
  Signal(const SignalGroup& group, const SignalDefinition& definition)
      : m_group(&group), m_definition(&definition) {}

  const SignalGroup* m_group;
  const SignalDefinition* m_definition;
};

/// The signals of one topic: the packed bytes and their definition, which the group keeps alive.
/// SignalAdapter makes groups; a default-constructed one is not valid and has no signals. A plain value; one
/// thread at a time.
class SignalGroup {
 public:
  SignalGroup() = default;

  [[nodiscard]] bool is_valid() const { return m_definition != nullptr; }
  /// Only for a valid group.
  [[nodiscard]] const std::string& topic() const { return *m_topic; }
  [[nodiscard]] const GroupDefinition& definition() const { return *m_definition; }
  /// Returns the packed bytes; in a new group every bit is set.
  [[nodiscard]] std::span<const uint8_t> bytes() const { return {m_bytes.data(), m_length}; }

  /// Returns nothing if the group has no such signal.
  [[nodiscard]] std::optional<Signal> signal(std::string_view name) const&;
  [[nodiscard]] std::optional<Signal> signal(std::string_view name) const&& = delete;
  /// Returns all signals in the database's order.
  [[nodiscard]] std::vector<Signal> signals() const&;
  [[nodiscard]] std::vector<Signal> signals() const&& = delete;

  /// Sets the physical value, rounded to the nearest raw value. Returns false if there is no such signal or
  /// it is a raw system signal. Also returns false if the value is NaN or its raw value is not a valid one;
  /// the signal is then not available (every bit set).
  [[nodiscard]] bool set_signal_scaled_value(std::string_view name, double value);
  /// Sets the raw value's bytes, lowest first, whatever they mean. Returns false and changes nothing if there
  /// is no such signal or they do not fit: there must be (width + 7) / 8 of them, with no bit set beyond the
  /// width unless all bytes are FF. A raw system signal takes 1 to 64 bytes.
  [[nodiscard]] bool set_signal_data(std::string_view name, std::span<const uint8_t> data);
  [[nodiscard]] bool set_signal_data(std::string_view name, std::initializer_list<uint8_t> data) {
    return set_signal_data(name, std::span(data.begin(), data.size()));
  }

 private:
  friend class Signal;
  friend class SignalAdapter;
  SignalGroup(std::shared_ptr<const GroupDefinition> definition, std::string_view topic);
  void assign(std::span<const uint8_t> bytes);

  std::shared_ptr<const GroupDefinition> m_definition;
  const std::string* m_topic = nullptr;  // the definition's
  size_t m_length = 0;
  std::array<uint8_t, GroupDefinition::MAX_LENGTH> m_bytes{};
};

struct UnpackResult {
  bool success = false;
  SignalGroup group;
  std::string error;  ///< why it failed
};

/// A file's database, null if it cannot be used, and what is wrong with it.
struct DatabaseReading {
  std::shared_ptr<const SignalDatabase> database;
  std::optional<config::Finding> finding;
};
/// Reads a DBC file for the key "signal_database". One that lacks groups or signals of the built-in database
/// can be used all the same.
[[nodiscard]] DatabaseReading read_database(const std::string& path);

/// Knows the groups of all topics: those of the signal database, "rt/system/gnss_timestamp_ns" with the one
/// 64-bit signal "timestamp_ns", and any other "rt/system/NAME" with one raw signal NAME of 1 to 64 bytes.
/// Any thread may use it.
class SignalAdapter {
 public:
  /// Starts with the built-in database.
  SignalAdapter();
  /// Starts with another database, which must not be null.
  explicit SignalAdapter(std::shared_ptr<const SignalDatabase> database) : m_database(std::move(database)) {}
  [[nodiscard]] static SignalAdapter& instance();

  /// Takes the groups from a DBC file instead. If the file cannot be read or understood, logs one ERROR with
  /// file, line and reason, uses the built-in database and returns false. Older groups keep their definition.
  bool load_database(const std::string& path);
  [[nodiscard]] std::shared_ptr<const SignalDatabase> database() const;

  /// Returns a new group for the topic, every bit set; it is not valid if the topic has none.
  [[nodiscard]] SignalGroup create_sg(const std::string& topic) const;
  /// Returns the enveloped group, or nothing if it cannot be packed.
  [[nodiscard]] std::optional<com::Message> pack(const SignalGroup& group) const;
  /// Does the same into a message whose memory is reused. On failure empties it and returns false.
  [[nodiscard]] bool pack(const SignalGroup& group, com::Message& out) const;
  /// Returns the group of a message of the topic. Fails for a topic without a group, a broken envelope, a
  /// payload shorter than the group, and a raw system signal of more than 64 bytes. Bytes of the payload
  /// after the group are ignored.
  [[nodiscard]] UnpackResult unpack(const std::string& topic, const com::Message& message) const;

 private:
  [[nodiscard]] std::shared_ptr<const GroupDefinition> definition_of(const std::string& topic) const;

  mutable std::mutex m_mutex;  // guards the pointer
  std::shared_ptr<const SignalDatabase> m_database;
};

}  // namespace ecu::koru::rt
