#pragma once

#include <string>

#include "platform/com/PbInternalMessageAdapter.h"
#include "proto/nvxproto.pb.h"

namespace test {

/// Returns a message as another program sends it.
template <typename Body>
ecu::koru::com::Message enveloped(const Body& body) {
  return ecu::koru::com::PbInternalMessageAdapter<Body>(1).serialize(body).message;
}
inline ecu::koru::com::Message envelopedSignal(const std::string& value) {
  ecu::koru::pb::RtSignal signal;
  signal.set_value(value);
  return enveloped(signal);
}

/// Returns the body of a message; empty if it cannot be decoded.
template <typename Body = ecu::koru::pb::RtSignal>
Body bodyOf(const ecu::koru::com::Message& message) {
  return ecu::koru::com::PbInternalMessageAdapter<Body>(1).deserialize(message).body;
}

}  // namespace test
