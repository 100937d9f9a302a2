#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ecu::koru::gpspub {

/// The systems that the receiver supports and uses: the payload of MON-GNSS. Bit 0 is GPS, 1 GLONASS,
/// 2 BeiDou, 3 Galileo.
struct MON_GNSS {
  uint8_t version = 0;
  uint8_t supported = 0;  // 0: no answer yet
  uint8_t defaultGnss = 0;
  uint8_t enabled = 0;
  uint8_t simultaneous = 0;
};

/// One system of CFG-GNSS: 8 bytes of its payload.
struct GFG_GNSS_ConfigBlock {
  uint8_t gnssId;
  uint8_t resTrkCh;  // reserved (minimum) tracking channels
  uint8_t maxTrkCh;
  uint32_t flags;  // bit 0: enabled; the others stay as received
};

/// The receiver's systems: the payload of CFG-GNSS.
struct CFG_GNSS {
  uint8_t msgVer = 0;
  uint8_t numTrkChHw = 0;
  uint8_t numTrkChUse = 0;
  uint8_t numConfigBlocks = 0;
  std::vector<GFG_GNSS_ConfigBlock> blocks;

  void clear() { *this = CFG_GNSS(); }
};

/// Returns the gnssId of a bit of the systems map, or 0 (GPS) for any bit above 3.
[[nodiscard]] uint8_t convertMonEnabledBitToCfgGnssId(unsigned bit);
/// Returns the gnssId of a bit of the augmentation map (0 SBAS, 1 QZSS, 2 IMES), or 0 for any bit above 2.
[[nodiscard]] uint8_t convertAugRequestedBitToCfgGnssId(unsigned bit);

/// Returns true if the frame is long enough for its payload length and its number of blocks.
[[nodiscard]] bool validateUblox_CFG_GNSS_String(const std::string& frame);
/// Reads a CFG-GNSS frame. Returns false and leaves `out` unchanged if it is not valid.
[[nodiscard]] bool parse_CFG_GNSS(const std::string& frame, CFG_GNSS& out);
/// Writes the blocks' flags into the frame. Returns false if the frame is not valid, has no blocks or has
/// another number of them.
[[nodiscard]] bool synch_CFG_GNSS_toString(std::string& frame, const CFG_GNSS& cfg);

void enableSystem_CFG_GNSS(CFG_GNSS& cfg, unsigned gnssId);
void disableSystem_CFG_GNSS(CFG_GNSS& cfg, unsigned gnssId);
/// Returns the map of the enabled augmentation systems.
[[nodiscard]] uint32_t enabledAugmentation(const CFG_GNSS& cfg);
/// Enables exactly the systems and augmentations of the two maps.
void selectSystems(CFG_GNSS& cfg, uint32_t systems, uint32_t augmentation);

/// Returns true if the enabled augmentation systems are not the requested ones.
[[nodiscard]] bool isAugmentationChanged(const CFG_GNSS& cfg, uint32_t requested);
/// Returns the frame that selects the requested systems, and changes `cfg` to match. Returns nothing if the
/// receiver has them already or has not yet reported its systems. `received` is the frame of `cfg`.
[[nodiscard]] std::optional<std::string> selectionFrame(const MON_GNSS& mon, CFG_GNSS& cfg,
                                                        const std::string& received, uint32_t requested,
                                                        uint32_t augmentation);

/// Logs the record at DEBUG.
void print_CFG_GNSS(const CFG_GNSS& cfg);

}  // namespace ecu::koru::gpspub
