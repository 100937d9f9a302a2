#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

/// Returns the newest valid fix as the examples print it; empty if there is none.
std::string newest(Tap& tap) {
  const auto& messages = tap.fixes();
  const auto valid = [](const json& message) {
    return message.contains("body") && message["body"].value("status", 0) == VALID;
  };
  const auto last = std::find_if(messages.rbegin(), messages.rend(), valid);
  if (last == messages.rend()) return {};
  const json& fix = (*last)["body"];
  char line[100];
  (void)std::snprintf(line, sizeof line, "%.3f %.6f %.6f %.1f km/h\n", fix["utc_time_us"].get<double>() / 1e6,
                      fix["latitude"].get<float>(), fix["longitude"].get<float>(), fix["speed"].get<float>());
  return line;
}

using ExamplesTest = test::SatnavdTest;

}  // namespace

TEST_F(ExamplesTest, PrintTheFixesAndSurviveCorruptMessages) {
  const auto unit = start_unit();
  const auto simulator = receiver({"--rate", "4"});
  Tap tap(broker);
  const Words address{"127.0.0.1", std::to_string(broker.port())};
  Process cpp({EXAMPLE_CPP, address[0], address[1]});
  Process python({"env", "PYTHONDONTWRITEBYTECODE=1", std::string("PYTHONPATH=") + EXAMPLE_PYTHON_MESSAGES,
                  "/usr/bin/python3", EXAMPLE_PYTHON, address[0], address[1]});
  const auto all_subscribed = [&] { return occurrences(broker.log(), "Received SUBSCRIBE from auto-") == 2; };
  ASSERT_TRUE(eventually(all_subscribed, PATIENCE_MS)) << cpp.err() << python.err();
  const auto service = satnavd();
  std::string line;
  const auto next_line = [&] {
    const std::string before = line;
    return eventually([&] { return (line = newest(tap)) != before; }, PATIENCE_MS);
  };
  ASSERT_TRUE(next_line());
  for (auto* example : {&cpp, &python}) EXPECT_TRUE(example->wait_for_output(line, PATIENCE_MS)) << line;

  const std::string time = "11 0000000000000000";
  const std::string bad[] = {"",
                             "00",
                             "09 0100 1200 02000000 11",
                             "09 0000 1200 02000000" + time + "4003",   // type 0
                             "09 0100 1300 02000000" + time + "4003",   // header length 19
                             "09 0100 1200 03000000" + time + "4003",   // too short a body
                             "09 0100 1200 02000000" + time + "0D00"};  // half of a float
  for (const auto& message : bad) unit->write_stdin("raw system/gnss/data " + message + "\n");
  for (auto* example : {&cpp, &python})
    EXPECT_TRUE(logged(*example, "fixes: dropped a message", std::size(bad)));
  unit->write_stdin("raw system/gnss/data 09 0100 1200 02000000" + time +
                    "4002 FF\n");  // not part of the body
  for (auto* example : {&cpp, &python}) EXPECT_TRUE(example->wait_for_output("status 2\n", PATIENCE_MS));
  line = newest(tap);
  ASSERT_TRUE(next_line());
  for (auto* example : {&cpp, &python}) EXPECT_TRUE(example->wait_for_output(line, PATIENCE_MS)) << line;
}
