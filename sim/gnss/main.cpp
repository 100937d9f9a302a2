#include <csignal>
#include <iostream>

#include "sim/gnss/Files.h"
#include "sim/gnss/LinkSession.h"
#include "sim/gnss/Session.h"

namespace {

namespace sim = ecu::koru::sim;

template <class SomeSession>
void run(const sim::ProgramOptions& options) {
  SomeSession session(options);
  sim::write_line(std::cout, "-", session.path());  // at once, because the starting program waits for it
  session.run();
  session.print_statistics();
}

}  // namespace

int main(int argc, char** argv) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
  const sim::ParsedOptions parsed = sim::parse_options(argc, argv);
  if (!parsed.options) return parsed.exit_status;
  try {
    if (parsed.options->link_recording) {
      run<sim::LinkSession>(*parsed.options);
    } else {
      run<sim::Session>(*parsed.options);
    }
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "gnss-sim: " << e.what() << '\n';
    return 1;
  }
}
