#include "tools/tap/NmeaOptions.h"

#include "tools/common/Options.h"
#include "tools/tap/NmeaPrinter.h"
#include "tools/tap/NmeaTerminal.h"

namespace ecu::koru::tap {

void add_nmea_options(CLI::App& app, NmeaOptions& options) {
  app.add_flag("--nmea", options.print, "Show the NMEA sentences of each fix, as they are, and nothing else");
  add_listen_option(
      app, "--tcp", options.tcp,
      "Send the sentences to every TCP client that connects here; without an address only this machine can");
  app.add_option("--pty", options.terminal_link,
                 "Write the sentences to a pseudo-terminal, and make this link to it, removed at the end")
      ->type_name("LINK")
      ->check(tool::file_name());
}

std::vector<std::shared_ptr<Output>> make_nmea_outputs(const NmeaOptions& options) {
  std::vector<std::shared_ptr<Output>> out;
  if (!options.terminal_link.empty()) out.push_back(std::make_shared<NmeaTerminal>(options.terminal_link));
  if (options.tcp) out.push_back(std::make_shared<NmeaServer>(*options.tcp));
  if (options.print) out.push_back(std::make_shared<NmeaPrinter>());
  return out;
}

}  // namespace ecu::koru::tap
