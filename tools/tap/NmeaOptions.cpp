#include "tools/tap/NmeaOptions.h"

#include "tools/common/Options.h"
#include "tools/tap/NmeaPrinter.h"
#include "tools/tap/NmeaTerminal.h"

namespace ecu::koru::tap {

namespace {

ListenAddress listen_address(const std::string& text) {
  if (auto address = parse_listen_address(text)) return *std::move(address);
  throw CLI::ValidationError("--tcp", "not [ADDRESS:]PORT with a numeric address: " + text);
}

}  // namespace

void add_nmea_options(CLI::App& app, NmeaOptions& options) {
  auto* const print = app.add_flag("--nmea", options.print,
                                   "Show the NMEA sentences of each fix, as they are, and nothing else");
  for (const auto* name : {"--topic", "--json", "--sentences", "--count"})
    print->excludes(app.get_option(name));
  app.add_option_function<std::string>(
         "--tcp", [&options](const std::string& text) { options.tcp = listen_address(text); },
         "Send the sentences to every TCP client that connects here; without an address only this machine "
         "can")
      ->type_name("[ADDRESS:]PORT");
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
