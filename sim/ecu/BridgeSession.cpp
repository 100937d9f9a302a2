#include "sim/ecu/BridgeSession.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "sim/ecu/Bridge.h"
#include "sim/ecu/BridgeEnd.h"
#include "tools/common/StandardOutput.h"
#include "tools/common/StopSignals.h"

namespace ecu::koru::sim {

namespace {

constexpr int64_t NS_PER_MS = 1'000'000;
constexpr int MAX_DELAY_MS = 60'000;

std::string check_end(const std::string& text) {
  try {
    (void)parse_bridge_end(text);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

/// Creates the connection to one end. Each has its own client name, because both may be on the same broker.
std::unique_ptr<tool::BusConnection> connection(tool::BusOptions bus, const BridgeEnd& end,
                                                const char* name) {
  bus.host = end.host;
  bus.port = end.port;
  if (bus.client_name.empty()) bus.client_name = bus.program + "-" + std::to_string(getpid());
  bus.client_name += name;
  return tool::BusConnection::create(bus);
}

/// Sends frames until the time is over or a signal arrives.
void carry(Bridge& bridge, tool::Event& frame_waits, double seconds) {
  const tool::StopSignals signals;
  const int64_t end_ns = time_source().steady_ns() + static_cast<int64_t>(seconds * 1e9);
  pollfd waits[] = {{signals.fd(), POLLIN, 0}, {frame_waits.fd(), POLLIN, 0}};
  while (waits[0].revents == 0) {
    frame_waits.clear();
    int64_t pause_ns = bridge.send_due().value_or(60'000 * NS_PER_MS);
    if (seconds > 0) pause_ns = std::min(pause_ns, end_ns - time_source().steady_ns());
    if (pause_ns <= 0) return;
    const timespec pause{static_cast<time_t>(pause_ns / 1'000'000'000),
                         static_cast<long>(pause_ns % 1'000'000'000)};
    if (ppoll(waits, std::size(waits), &pause, nullptr) < 0 && errno != EINTR) return;
  }
}

std::string counts(const Bridge& bridge) {
  std::string out;
  for (const auto& route : bridge.routes())
    out += logging::text("ecu-sim: ", route.name, " ", route.from, " -> ", route.to, ": ", route.carried,
                         " carried, ", route.lost, " lost, ", route.dropped, " dropped, ", route.malformed,
                         " malformed\n");
  return out;
}

/// Returns the exit status, after a report if the text could not be written.
int print(const std::string& text) {
  tool::StandardOutput output;
  output.write(text);
  if (output.problem().empty()) return tool::EXIT_DONE;
  std::cerr << "ecu-sim: " << output.problem() << '\n';
  return tool::EXIT_FAILED;
}

bool subscribe(com::ITransportClient& transport, const std::shared_ptr<Bridge>& bridge) {
  const auto topics = bridge->topics();
  if (topics.empty()) std::cerr << "ecu-sim: the signal database has no group with both topics\n";
  return !topics.empty() && std::all_of(topics.begin(), topics.end(), [&](const std::string& topic) {
    if (transport.subscribe(topic, bridge, 0)) return true;
    std::cerr << "ecu-sim: cannot subscribe to " << topic << '\n';
    return false;
  });
}

}  // namespace

void add_bridge_options(CLI::App& app, BridgeOptions& options) {
  constexpr const char* GROUP = "Bridge";
  auto* const bridge =
      app.add_option("--bridge", options.ends,
                     "Carry the CAN signal groups that one unit sends to where the other receives them")
          ->type_name("FROM TO")
          ->check(CLI::Validator(check_end, ""))
          ->group(GROUP);
  const auto add = [&](const char* name, auto& value, const char* help) {
    return app.add_option(name, value, help)->needs(bridge)->group(GROUP);
  };
  add("--loss", options.loss, "Lose each frame with this probability [0]")
      ->check(CLI::Range(0.0, 1.0) & tool::not_nan());
  add("--seed", options.seed, "Chooses which ones: the same seed, the same losses [1]");
  add("--delay", options.delay_ms, "Carry each frame so many milliseconds later, in order [0]")
      ->check(CLI::Range(0, MAX_DELAY_MS));
  add("--seconds", options.seconds, "End after so many seconds")
      ->check(CLI::Range(0.001, 1e9) & tool::not_nan());
  tool::add_signal_database_option(app, options.signal_database)->needs(bridge)->group(GROUP);
}

int run_bridge(const CLI::App& app, const tool::BusOptions& bus, const BridgeOptions& options) {
  const BridgeEnd ends[] = {parse_bridge_end(options.ends.first), parse_bridge_end(options.ends.second)};
  const auto from = connection(bus, ends[0], "-from");
  const auto to = connection(bus, ends[1], "-to");
  if (from == nullptr || to == nullptr) return tool::EXIT_WRONG_OPTIONS;
  if (!tool::use_signal_database(app, options.signal_database)) return tool::EXIT_FAILED;
  tool::Event frame_waits;
  const auto bridge = std::make_shared<Bridge>(Bridge::Options{.from_prefix = ends[0].prefix,
                                                               .to_prefix = ends[1].prefix,
                                                               .loss = options.loss,
                                                               .seed = options.seed,
                                                               .delay_ns = options.delay_ms * NS_PER_MS},
                                               to->transport(), [&] { frame_waits.raise(); });
  if (!subscribe(from->transport(), bridge)) return tool::EXIT_FAILED;
  int status = to->open() && from->open() ? tool::EXIT_DONE : tool::EXIT_FAILED;
  if (status == tool::EXIT_DONE) {
    status = print(logging::text("ecu-sim: carrying ", bridge->topics().size(), " groups from ",
                                 ends[0].text(), " to ", ends[1].text(), "\n"));
  }
  if (status == tool::EXIT_DONE) {
    carry(*bridge, frame_waits, options.seconds);
    bridge->stop();
    status = print(counts(*bridge));
  }
  status = to->close(status);
  return from->close(status);
}

}  // namespace ecu::koru::sim
