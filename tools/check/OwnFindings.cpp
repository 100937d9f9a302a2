#include "tools/check/OwnFindings.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

#include "input/LinkRecorder.h"
#include "platform/base/Numbers.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::check {

namespace {

using config::Configuration;
using gpspub::Settings;
namespace ubx = gpspub::ubx;
using Findings = std::vector<OwnFinding>;

constexpr uint32_t AUGMENTATIONS = 0x7;
constexpr std::string_view RAW_COMMAND = "raw_cmd_post[";
constexpr const char* NO_RECORDING = "nothing is recorded";
constexpr unsigned MIB_BITS = 20;

bool was_found(const Settings& settings, std::string_view key) {
  return std::ranges::find(settings.findings, key, &config::Finding::key) != settings.findings.end();
}

/// Finds a text of which the service takes only the start as a number, or that has a sign.
void check_number(Findings& findings, const Configuration& config, const Settings& settings,
                  const std::string& key) {
  const std::string text = config.get(key);
  if (text.empty() || was_found(settings, key)) return;
  if (to_int_within_base0(text, 0, std::numeric_limits<uint32_t>::max())) return;
  findings.push_back({key, "this is not a number as a whole; the service takes what it can read as one",
                      std::to_string(to_u32_base0(text)), true});
}

void check_log_mode(Findings& findings, const Configuration& config, const Settings& settings) {
  if (settings.log_mode) return;
  const std::string why = config.get("logmode").empty() ? "is empty" : "does not exist";
  findings.push_back({"logmode", "this mode " + why + "; records stay on standard error", "STDERR", true});
}

void check_augmentation(Findings& findings, const Settings& settings) {
  const uint32_t mask = settings.gnss_augmentation.value_or(0);
  if ((mask & ~AUGMENTATIONS) == 0) return;
  findings.push_back({"gnss_augmentation",
                      "only the bits 1, 2 and 4 stand for a system; with another one the "
                      "service never sees the receiver have what it asks for"});
}

void check_gnss_system(Findings& findings, const Configuration& config) {
  if (config.line("gnss_system") == 0 || config.get("gnss_system") == "03") return;
  findings.push_back({"gnss_system",
                      "this key has no effect; the systems come from the parameters and from the option -s",
                      "the systems of the parameters"});
}

void check_host(Findings& findings, const com::MqttOptions& broker) {
  if (broker.host.find_first_of("/ \t@") == std::string::npos) return;
  findings.push_back({"host", "this is neither a name nor an address; there will be no connection"});
}

void check_paths(Findings& findings, const Configuration& config) {
  for (const char* key :
       {"gnss_device", "signal_database", "record_link", "password_file", "tls_ca", "tls_cert", "tls_key"}) {
    if (const std::string path = config.get(key); !path.empty() && path.front() != '/')
      findings.push_back({key, "this path is relative",
                          "the file in the service's working folder, which is / in the packaged unit"});
  }
}

/// Looks whether a recording can be written as this user, with all the room that it may take.
void check_recording(Findings& findings, const Settings& settings) {
  const std::string& path = settings.record_link;
  if (path.empty()) return;
  const auto find = [&](std::string problem, std::string taken) {
    findings.push_back({"record_link", std::move(problem), std::move(taken)});
  };
  const auto parent = std::filesystem::path(path).parent_path();
  const std::string folder = parent.empty() ? "." : parent.string();
  struct statvfs room {};
  if (::statvfs(folder.c_str(), &room) != 0)
    return find("the folder of this file cannot be found: " + logging::text(std::strerror(errno)),
                NO_RECORDING);
  if (::access(folder.c_str(), W_OK) != 0)
    return find("the folder of this file is not writable for the user who checks it", NO_RECORDING);
  if (const std::string refusal = gpspub::LinkRecorder::refusal(path); !refusal.empty())
    return find("this file cannot be used: " + refusal, NO_RECORDING);
  const uint64_t free_mib = uint64_t{room.f_bavail} * room.f_frsize >> MIB_BITS;
  if (free_mib < 2 * uint64_t{settings.record_link_size})
    find(logging::text("up to 2 x ", settings.record_link_size, " MiB are recorded, but only ", free_mib,
                       " MiB are free there"),
         "the recording ends when the disk is full");
}

std::span<const uint8_t> bytes_of(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// Returns why the bytes are not a frame; empty if they are one.
std::string frame_fault(std::span<const uint8_t> bytes) {
  if (bytes.size() < ubx::OVERHEAD_LEN)
    return logging::text("this is no UBX frame: it has ", bytes.size(), " of at least ", ubx::OVERHEAD_LEN,
                         " bytes");
  if (bytes[0] != ubx::SYNC_1 || bytes[1] != ubx::SYNC_2)
    return "this is no UBX frame: it does not begin with B5 62";
  const size_t payload = bytes.size() - ubx::OVERHEAD_LEN;
  const size_t announced = ubx::u16(bytes, ubx::LENGTH_OFFSET);
  if (payload > ubx::MAX_PAYLOAD)
    return logging::text("the frame is too long: its payload has ", payload, " bytes, at most ",
                         ubx::MAX_PAYLOAD, " are allowed");
  if (payload == announced) return {};
  return logging::text("the frame's length field says ", announced, " bytes of payload, but there are ",
                       payload);
}

void check_raw_commands(Findings& findings, const Settings& settings) {
  for (size_t i = 0; i < settings.raw_cmd_post.size(); ++i) {
    const std::string& command = settings.raw_cmd_post[i];
    if (command.empty()) continue;
    if (auto fault = frame_fault(bytes_of(command)); !fault.empty())
      findings.push_back({logging::text(RAW_COMMAND, i, "]"), std::move(fault), "it is sent as it is"});
  }
}

// -- TLS

struct FreeContext {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

std::string tls_reason() {
  const unsigned long code = ERR_peek_error();
  ERR_clear_error();
  const char* const reason = ERR_reason_error_string(code);
  return reason != nullptr ? reason : "the file cannot be used";
}

/// There is nobody to type a pass phrase.
int no_pass_phrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/) {
  return 0;
}

/// Loads the TLS files as the client library does when it connects.
void check_tls(Findings& findings, const com::MqttOptions& broker) {
  if (broker.tls_ca.empty() || !com::file_faults(broker).empty()) return;
  const std::unique_ptr<SSL_CTX, FreeContext> context(SSL_CTX_new(TLS_client_method()));
  SSL_CTX_set_default_passwd_cb(context.get(), no_pass_phrase);
  const auto expect = [&](int result, const char* key, const char* what) {
    if (result != 1) findings.push_back({key, what + tls_reason(), "no connection is made"});
    return result == 1;
  };
  expect(SSL_CTX_load_verify_locations(context.get(), broker.tls_ca.c_str(), nullptr), "tls_ca",
         "this file holds no certificates in PEM: ");
  if (broker.tls_cert.empty()) return;
  const bool good =
      expect(SSL_CTX_use_certificate_chain_file(context.get(), broker.tls_cert.c_str()), "tls_cert",
             "this file holds no certificate in PEM: ") &&
      expect(SSL_CTX_use_PrivateKey_file(context.get(), broker.tls_key.c_str(), SSL_FILETYPE_PEM), "tls_key",
             "this file holds no key in PEM for tls_cert: ");
  if (good) expect(SSL_CTX_check_private_key(context.get()), "tls_key", "the key is not that of tls_cert: ");
}

// -- Unknown keys

/// Returns how many characters differ (Levenshtein).
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::vector<OwnFinding> own_findings(const Configuration& config, const Settings& settings,
                                     const com::MqttOptions& broker) {
  Findings findings;
  check_log_mode(findings, config, settings);
  for (const char* key : {"baud_rate", "gnss_augmentation", "debugflags"})
    check_number(findings, config, settings, key);
  check_augmentation(findings, settings);
  check_gnss_system(findings, config);
  check_raw_commands(findings, settings);
  check_paths(findings, config);
  check_recording(findings, settings);
  check_host(findings, broker);
  check_tls(findings, broker);
  return findings;
}

std::string unknown_key(const std::string& key) {
  constexpr size_t LONGEST = 40;  // no key is as long
  const char* const text = "there is no such key";
  if (key.size() > LONGEST) return text;
  std::string_view nearest;
  size_t least = 4;  // a typing error changes fewer characters
  const auto look_at = [&](std::string_view name) {
    if (const size_t found = distance(key, name); found < std::min(least, name.size() / 2)) {
      least = found;
      nearest = name;
    }
  };
  for (const auto& known : gpspub::settingsKeys()) look_at(known.name);
  for (const auto& known : com::mqtt_keys()) look_at(known.name);
  return nearest.empty() ? std::string(text) : logging::text(text, "; is ", nearest, " meant?");
}

std::string note_of(std::string_view key, const Settings& settings) {
  for (size_t i = 0; i < settings.raw_cmd_post.size(); ++i) {
    if (key != logging::text(RAW_COMMAND, i, "]")) continue;
    const auto bytes = bytes_of(settings.raw_cmd_post[i]);
    if (!frame_fault(bytes).empty()) return {};
    const bool right =
        gpspub::GnssUtils::isUbloxChecksumCorrect(bytes.data(), static_cast<unsigned>(bytes.size()));
    return right ? "" : ", sent with the right checksum";
  }
  return {};
}

}  // namespace ecu::koru::check
