// satnav-check: looks for mistakes in the configuration and on the unit, and changes nothing.
#include <mosquittopp.h>

#include <cstdlib>
#include <iostream>

#include "app/Options.h"
#include "platform/base/Logging.h"
#include "tools/check/FileCheck.h"
#include "tools/check/LiveCheck.h"
#include "tools/common/Options.h"
#include "tools/common/StandardOutput.h"
#include "tools/common/StopSignals.h"

namespace {

using namespace ecu::koru;

constexpr int EXIT_CLEAN = 0;
constexpr int EXIT_FINDINGS = 1;
constexpr int EXIT_NOT_CHECKED = 2;

struct Options {
  std::string file;
  std::string device;
  bool live = false;
  bool json = false;
};

constexpr const char* DESCRIPTION =
    R"(Reads satnavd's configuration as the service does and shows everything in it that will not have the effect that
its author expects: line, key, value, what the service takes instead and what is allowed. Then it shows the value of
every key and where that comes from. With --live it looks at the unit too: can the receiver's device be opened, who
holds it, what is heard there; the broker, its login and TLS, the subscriptions; the variables and parameters and what
they mean; whether the receiver's line carries all that is configured. It changes nothing: it publishes nothing, sends
the receiver nothing and leaves a device alone that another process holds.)";

constexpr const char* FOOTER =
    R"(Without --config the file is the one that the service would read: satnavd.conf in the working directory, or else
/etc/satnavd/satnavd.conf.

Exit status: 0 nothing was found; 1 there are findings; 2 the file cannot be read, wrong options, a signal ended the
check, or the report cannot be written.)";

void add_options(CLI::App& app, Options& options) {
  app.add_option("--config", options.file, "The file to check [the one that the service would read]")
      ->check(tool::file_name());
  auto* const live = app.add_flag("--live", options.live, "Look at the unit too; takes up to 10 s");
  app.add_option("--gnssdevice", options.device, "The receiver's device, if the service is given one with -g")
      ->check(tool::file_name())
      ->needs(live);
  app.add_flag("--json", options.json,
               "Write one JSON document: file, starts, findings, settings and, with --live, unit");
}

int run(const CLI::App& app, const Options& options) {
  const auto fail = [&app](const std::string& why) {
    std::cerr << app.get_name() << ": " << why << '\n';
    return EXIT_NOT_CHECKED;
  };
  const std::string path = options.file.empty() ? gpspub::satnavdConfigpath() : options.file;
  if (path.empty())
    return fail(
        "neither satnavd.conf in this folder nor /etc/satnavd/satnavd.conf can be read; the service "
        "does not start");
  const auto file = check::read_file(path);
  if (!file) return fail("cannot read " + path);

  check::Report report{.file = file->path};
  check::check_file(*file, report);
  if (options.live && !check::check_live(*file, options.device, report)) return fail("ended by a signal");
  tool::StandardOutput output;
  output.write(options.json ? check::as_json(report) : check::as_text(report));
  if (!output.problem().empty()) return fail(output.problem());
  return report.count() == 0 ? EXIT_CLEAN : EXIT_FINDINGS;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(DESCRIPTION, "satnav-check");
  app.footer(FOOTER);
  Options options;
  add_options(app, options);
  if (const auto status = tool::parse_options(app, argc, argv)) return *status;
  logging::configure_logging("EMERG");  // the report says it all
  tool::ignore_write_signals();
  mosqpp::lib_init();
  std::_Exit(run(app, options));  // without clean-up: a name look-up may still hold the transport's thread
}
