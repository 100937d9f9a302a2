#include "platform/PbInternalMessageAdapter.h"

#include <limits>
#include <stdexcept>

#include "platform/Logging.h"
#include "platform/Time.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::com::envelope {

namespace {

constexpr auto LOG = logging::module("koru.com.messageadapter");

using Error = err::PbInternalDeserializationError;

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
  // The size was just computed: the cached sizes of the body are those of this very moment.
  if (!body.IsInitialized()) throw std::runtime_error("unable to serialize body!");
  body.SerializeWithCachedSizesToArray(out.payload.data() + HEADER_LENGTH);
  out.timestamp_ns = now_ns;
  out.valid = true;
  out.retained = false;
}

}  // namespace

bool wrap(uint32_t protocol_type, const google::protobuf::MessageLite& body, Message& out) noexcept {
  try {
    fill(protocol_type, body, out);
    return true;
  } catch (const std::runtime_error& error) {
    LOG.error(error.what());
  } catch (...) {
    LOG.error("Unable to allocate memory for serialization!");
  }
  out = Message{};
  return false;
}

Error unwrap(std::span<const uint8_t> payload, uint32_t& protocol_type,
             google::protobuf::MessageLite& body) noexcept {
  try {
    if (payload.empty()) return Error::MessageTooShort;
    if (payload.size() < HEADER_LENGTH) {
      LOG.error("Total length is smaller then expected header length");
      return Error::MessageTooShort;
    }
    pb::NVXHeader header;
    if (!header.ParseFromArray(payload.data(), HEADER_LENGTH)) {
      LOG.error("Unable to decode the header.");
      return Error::HeaderDecodeFailed;
    }
    const uint64_t word = header.header();
    protocol_type = static_cast<uint32_t>(word & 0xFFFF);
    if (protocol_type == 0) {
      LOG.error("ProtocolType is set to not used!");
      return Error::ProtocolTypeNotUsed;
    }
    if ((word >> 16 & 0xFFFF) != HEADER_LENGTH) {
      LOG.error("Specified hdr-len does not comply.");
      return Error::HeaderLengthMismatch;
    }
    const uint64_t body_length = word >> 32;
    if (body_length <= std::numeric_limits<int32_t>::max() && HEADER_LENGTH + body_length <= payload.size() &&
        body.ParseFromArray(payload.data() + HEADER_LENGTH, static_cast<int>(body_length))) {
      return Error::None;
    }
  } catch (...) {  // out of memory: the body is not decoded
  }
  try {
    LOG.emerg("Unable to deserialize protobuf");
  } catch (...) {
  }
  return Error::BodyDecodeFailed;
}

}  // namespace ecu::koru::com::envelope
