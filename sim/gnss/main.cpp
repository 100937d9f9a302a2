#include <csignal>
#include <iostream>

#include "sim/gnss/Session.h"

int main(int argc, char** argv) {
  namespace sim = ecu::koru::sim;
  (void)std::signal(SIGPIPE, SIG_IGN);
  const sim::ParsedOptions parsed = sim::parse_options(argc, argv);
  if (!parsed.options) return parsed.exit_status;
  try {
    sim::Session session(*parsed.options);
    std::cout << session.path() << std::endl;  // flushed, because the starting program waits for it
    session.run();
    session.print_statistics();
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "gnss-sim: " << e.what() << '\n';
    return 2;
  }
}
