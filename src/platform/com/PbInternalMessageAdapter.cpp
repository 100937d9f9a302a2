#include "platform/com/PbInternalMessageAdapter.h"

#include <limits>
#include <stdexcept>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::com::envelope {

namespace {

constexpr auto LOG = logging::module("koru.com.messageadapter");

using Error = err::PbInternalDeserializationError;

/// Logs a record and never throws, not even if memory runs out.
void report(logging::Level level, const char* text) noexcept {
  try {
    LOG.log(level, text);
  } catch (...) {
  }
}

Error failed(Error error, const char* text, logging::Level level = logging::Level::ERROR) noexcept {
  report(level, text);
  return error;
}

void fill(uint32_t protocol_type, const google::protobuf::MessageLite& body, Message& out) {
  const uint64_t now_ns = DateTime::time_since_boot_ns();
  const size_t body_length = body.ByteSizeLong();
  if (body_length > std::numeric_limits<uint32_t>::max() - HEADER_LENGTH) {
    throw std::runtime_error("unable to serialize body!");
  }
  out.payload.resize(HEADER_LENGTH + body_length);

  pb::NVXHeader header;
  header.set_header(protocol_type | uint64_t{HEADER_LENGTH} << 16 | uint64_t{body_length} << 32);
  header.set_timestamp_ns(now_ns);
  if (header.ByteSizeLong() != HEADER_LENGTH || !header.SerializeToArray(out.payload.data(), HEADER_LENGTH)) {
    throw std::runtime_error("unable to serialize NVXheader!");
  }
  // ByteSizeLong() above has just cached the sizes of the body.
  if (!body.IsInitialized()) throw std::runtime_error("unable to serialize body!");
  body.SerializeWithCachedSizesToArray(out.payload.data() + HEADER_LENGTH);
  out.timestamp_ns = now_ns;
  out.valid = true;
  out.retained = false;
}

/// Returns false if the bytes are not such a message or memory runs out.
bool parse(std::span<const uint8_t> bytes, google::protobuf::MessageLite& out) noexcept {
  try {
    return bytes.size() <= std::numeric_limits<int32_t>::max() &&
           out.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
  } catch (...) {
    return false;
  }
}

}  // namespace

bool wrap(uint32_t protocol_type, const google::protobuf::MessageLite& body, Message& out) noexcept {
  try {
    fill(protocol_type, body, out);
    return true;
  } catch (const std::runtime_error& error) {
    report(logging::Level::ERROR, error.what());
  } catch (...) {
    report(logging::Level::ERROR, "Unable to allocate memory for serialization!");
  }
  out = Message{};
  return false;
}

Error unwrap(std::span<const uint8_t> payload, uint32_t& protocol_type,
             google::protobuf::MessageLite& body) noexcept {
  if (payload.empty()) return Error::MessageTooShort;
  if (payload.size() < HEADER_LENGTH)
    return failed(Error::MessageTooShort, "Total length is smaller then expected header length");
  pb::NVXHeader header;
  if (!parse(payload.first(HEADER_LENGTH), header))
    return failed(Error::HeaderDecodeFailed, "Unable to decode the header.");
  const uint64_t word = header.header();
  protocol_type = static_cast<uint32_t>(word & 0xFFFF);
  if (protocol_type == 0) return failed(Error::ProtocolTypeNotUsed, "ProtocolType is set to not used!");
  if ((word >> 16 & 0xFFFF) != HEADER_LENGTH)
    return failed(Error::HeaderLengthMismatch, "Specified hdr-len does not comply.");
  const uint64_t length = word >> 32;
  const auto rest = payload.subspan(HEADER_LENGTH);  // the body, and bytes after it that nobody needs
  if (length <= rest.size() && parse(rest.first(static_cast<size_t>(length)), body)) return Error::None;
  return failed(Error::BodyDecodeFailed, "Unable to deserialize protobuf", logging::Level::EMERG);
}

}  // namespace ecu::koru::com::envelope
