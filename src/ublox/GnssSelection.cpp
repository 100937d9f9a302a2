#include "ublox/GnssSelection.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "wire/ServiceLog.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

namespace {

constexpr uint32_t ENABLED = 1;
constexpr size_t CFG_HEADER_LEN = 4;
constexpr size_t BLOCK_LEN = 8;
constexpr size_t BLOCK_FLAGS = 4;  // offset in a block
constexpr size_t MIN_PAYLOAD = 8;
constexpr size_t NUM_CONFIG_BLOCKS = 3;  // offset in the payload

// The gnssId of each bit.
constexpr std::array<uint8_t, 4> SYSTEM_IDS{0, 6, 3, 2};
constexpr std::array<uint8_t, 3> AUGMENTATION_IDS{1, 5, 4};

constexpr std::array<std::string_view, 7> NAMES{"  GPS",  "  SBAS", "  Galileo", "  BeiDou",
                                                "  IMES", "  QZSS", "  GLONASS"};

std::span<const uint8_t> bytesOf(const std::string& frame) {
  return {reinterpret_cast<const uint8_t*>(frame.data()), frame.size()};
}

std::span<const uint8_t> payloadOf(const std::string& frame) {
  return bytesOf(frame).subspan(ubx::HEADER_LEN, ubx::u16(bytesOf(frame), ubx::LENGTH_OFFSET));
}

}  // namespace

uint8_t convertMonEnabledBitToCfgGnssId(unsigned bit) {
  return bit < SYSTEM_IDS.size() ? SYSTEM_IDS[bit] : uint8_t{0};
}

uint8_t convertAugRequestedBitToCfgGnssId(unsigned bit) {
  return bit < AUGMENTATION_IDS.size() ? AUGMENTATION_IDS[bit] : uint8_t{0};
}

bool validateUblox_CFG_GNSS_String(const std::string& frame) {
  if (frame.size() < ubx::OVERHEAD_LEN) return false;
  const size_t length = ubx::u16(bytesOf(frame), ubx::LENGTH_OFFSET);
  if (length < MIN_PAYLOAD || length + ubx::OVERHEAD_LEN > frame.size()) return false;
  return CFG_HEADER_LEN + BLOCK_LEN * ubx::u8(payloadOf(frame), NUM_CONFIG_BLOCKS) <= length;
}

bool parse_CFG_GNSS(const std::string& frame, CFG_GNSS& out) {
  if (!validateUblox_CFG_GNSS_String(frame)) return false;
  const auto payload = payloadOf(frame);
  out = {payload[0], payload[1], payload[2], payload[NUM_CONFIG_BLOCKS], {}};
  for (size_t i = 0; i < out.numConfigBlocks; ++i) {
    const auto block = payload.subspan(CFG_HEADER_LEN + BLOCK_LEN * i, BLOCK_LEN);
    out.blocks.push_back({block[0], block[1], block[2], ubx::u32(block, BLOCK_FLAGS)});
  }
  return true;
}

bool synch_CFG_GNSS_toString(std::string& frame, const CFG_GNSS& cfg) {
  if (!validateUblox_CFG_GNSS_String(frame)) return false;
  const size_t count = ubx::u8(payloadOf(frame), NUM_CONFIG_BLOCKS);
  if (count == 0 || count != cfg.blocks.size()) return false;
  for (size_t i = 0; i < count; ++i) {
    const size_t at = ubx::HEADER_LEN + CFG_HEADER_LEN + BLOCK_LEN * i + BLOCK_FLAGS;
    for (size_t byte = 0; byte < sizeof(uint32_t); ++byte) {
      frame[at + byte] = static_cast<char>(cfg.blocks[i].flags >> 8 * byte & 0xFF);
    }
  }
  return true;
}

void enableSystem_CFG_GNSS(CFG_GNSS& cfg, unsigned gnssId) {
  for (auto& block : cfg.blocks) {
    if (block.gnssId == gnssId) block.flags |= ENABLED;
  }
}

void disableSystem_CFG_GNSS(CFG_GNSS& cfg, unsigned gnssId) {
  for (auto& block : cfg.blocks) {
    if (block.gnssId == gnssId) block.flags &= ~ENABLED;
  }
}

uint32_t enabledAugmentation(const CFG_GNSS& cfg) {
  uint32_t map = 0;
  for (const auto& block : cfg.blocks) {
    const auto* const id = std::find(AUGMENTATION_IDS.begin(), AUGMENTATION_IDS.end(), block.gnssId);
    if (id != AUGMENTATION_IDS.end() && (block.flags & ENABLED) != 0)
      map |= 1U << (id - AUGMENTATION_IDS.begin());
  }
  return map;
}

void selectSystems(CFG_GNSS& cfg, uint32_t systems, uint32_t augmentation) {
  for (const uint8_t id : SYSTEM_IDS) disableSystem_CFG_GNSS(cfg, id);
  for (const uint8_t id : AUGMENTATION_IDS) disableSystem_CFG_GNSS(cfg, id);
  for (unsigned bit = 0; bit < SYSTEM_IDS.size(); ++bit) {
    if ((systems >> bit & 1) != 0) enableSystem_CFG_GNSS(cfg, convertMonEnabledBitToCfgGnssId(bit));
  }
  for (unsigned bit = 0; bit < AUGMENTATION_IDS.size(); ++bit) {
    if ((augmentation >> bit & 1) != 0) enableSystem_CFG_GNSS(cfg, convertAugRequestedBitToCfgGnssId(bit));
  }
}

bool isAugmentationChanged(const CFG_GNSS& cfg, uint32_t requested) {
  const uint32_t enabled = enabledAugmentation(cfg);
  LOG.detail(logflag::SYSTEM_PARAMETERS, "UbloxConfig::isAugmentationChanged augmentation_enabled ", enabled,
             " m_gnss_augmentation_requested ", requested);
  return enabled != (requested & 0xFF);
}

std::optional<std::string> selectionFrame(const MON_GNSS& mon, CFG_GNSS& cfg, const std::string& received,
                                          uint32_t requested, uint32_t augmentation) {
  if (mon.supported == 0 || cfg.blocks.empty()) return std::nullopt;
  if (mon.enabled == (requested & 0xFF)) {
    if (!isAugmentationChanged(cfg, augmentation)) return std::nullopt;
  } else {
    LOG.detail(logflag::SYSTEM_PARAMETERS, "UbloxConfig::checkGnssSystem() enabled gnss system", " 0x",
               logging::hex(mon.enabled), " system requested", " 0x", logging::hex(requested));
    LOG.notice("Changing from gnss system 0x", logging::hex(mon.enabled), " to 0x", logging::hex(requested),
               ". Cached Satellite data cleared. Time to first fix may be long.");
  }
  LOG.detail(logflag::CONSTELLATIONS, "UbloxConfig::checkGnssSystem() m_CFG_GNSS_string.length ",
             received.size());
  LOG.detail(logflag::CONSTELLATIONS, "m_CFG_GNSS before modification");
  print_CFG_GNSS(cfg);
  selectSystems(cfg, requested, augmentation);
  LOG.detail(logflag::CONSTELLATIONS, "m_CFG_GNSS after modification");
  print_CFG_GNSS(cfg);
  std::string frame = received;
  if (!synch_CFG_GNSS_toString(frame, cfg)) {
    LOG.detail(logflag::CONSTELLATIONS, "the CFG-GNSS frame is sent with its flags as received");
  }
  if (CFG_GNSS sent; parse_CFG_GNSS(frame, sent)) print_CFG_GNSS(sent);
  return frame;
}

void print_CFG_GNSS(const CFG_GNSS& cfg) {
  LOG.detail(logflag::CONSTELLATIONS, "msgVer  0x", logging::hex(cfg.msgVer, 2), " numTrkChHw ",
             cfg.numTrkChHw, " numTrkChUse ", cfg.numTrkChUse, " numConfigBlocks ", cfg.numConfigBlocks);
  for (const auto& block : cfg.blocks) {
    LOG.detail(logflag::CONSTELLATIONS, "gnssId ", block.gnssId,
               block.gnssId < NAMES.size() ? NAMES[block.gnssId] : std::string_view(),
               "\tReserved (minimum) Tracking Channels ", block.resTrkCh, "\tMax Tracking Channels ",
               block.maxTrkCh, "\tflags  0x", logging::hex(block.flags, 8),
               (block.flags & ENABLED) != 0 ? " Enabled" : " Disabled");
  }
}

}  // namespace ecu::koru::gpspub
