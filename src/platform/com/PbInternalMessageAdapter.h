#pragma once

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <exception>
#include <span>
#include <utility>

#include "platform/com/Transport.h"

/// The envelope: an 18-byte header, a pb::NVXHeader, precedes every protobuf body.
///
///   offset 0  0x09               tag of field 1 (fixed64)
///          1  protocol type      u16 little-endian, 1 if sent by this service
///          3  header length      u16, 18
///          5  body length        u32
///          9  0x11               tag of field 2 (fixed64)
///         10  time stamp         u64, ns since boot
///         18  body
namespace ecu::koru::com {

namespace err {
enum class PbInternalDeserializationError : int {
  None = 0,
  MessageTooShort = 1,
  HeaderDecodeFailed = 2,
  ProtocolTypeNotUsed = 3,
  HeaderLengthMismatch = 4,
  BodyDecodeFailed = 5
};
}  // namespace err

template <typename T>
struct SerializeResult {
  bool success = false;
  Message message;
};

template <typename T, typename E>
struct DeserializeResult {
  bool success = false;
  T body;
  E error = E{};
};

template <typename T, typename E>
class IMessageAdapter {
 public:
  virtual ~IMessageAdapter() = default;
  [[nodiscard]] virtual SerializeResult<T> serialize(const T& body) = 0;
  [[nodiscard]] virtual DeserializeResult<T, E> deserialize(const Message& message) = 0;
};

namespace envelope {

inline constexpr uint32_t HEADER_LENGTH = 18;

/// Writes header and body into `out` and reuses its capacity. On failure logs it, empties `out` and returns
/// false. Never throws.
[[nodiscard]] bool wrap(uint32_t protocol_type, const google::protobuf::MessageLite& body,
                        Message& out) noexcept;

/// Checks the header, stores its protocol type and parses the body into `body`. Logs every failure except an
/// empty payload. Never throws.
[[nodiscard]] err::PbInternalDeserializationError unwrap(std::span<const uint8_t> payload,
                                                         uint32_t& protocol_type,
                                                         google::protobuf::MessageLite& body) noexcept;

}  // namespace envelope

/// Puts bodies of type T into envelopes and takes them out. Meant as a short-lived local of one thread.
template <typename T>
class PbInternalMessageAdapter final : public IMessageAdapter<T, err::PbInternalDeserializationError> {
 public:
  using Error = err::PbInternalDeserializationError;

  explicit PbInternalMessageAdapter(uint16_t protocol_type) : m_protocol_type(protocol_type) {}

  /// Returns the enveloped body with `valid` true and `retained` false, stamped with the time since boot.
  [[nodiscard]] SerializeResult<T> serialize(const T& body) override {
    SerializeResult<T> result;
    result.success = serialize(body, result.message);
    return result;
  }

  /// Does the same into a message whose memory is reused.
  [[nodiscard]] bool serialize(const T& body, Message& out) {
    return envelope::wrap(m_protocol_type, body, out);
  }

  /// Returns a default body on failure. The protocol type becomes that of the received header. The header's
  /// time stamp is not returned; Message::timestamp_ns is the time of arrival.
  [[nodiscard]] DeserializeResult<T, Error> deserialize(const Message& message) override {
    DeserializeResult<T, Error> result;
    result.error = envelope::unwrap(message.payload, m_protocol_type, result.body);
    result.success = result.error == Error::None;
    if (!result.success) result.body.Clear();
    return result;
  }

  [[nodiscard]] uint32_t protocol_type() const { return m_protocol_type; }

 private:
  uint32_t m_protocol_type;  // 16 bits; 0 is "not used" and refused on reception
};

}  // namespace ecu::koru::com
