#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "support/Process.h"
#include "support/Support.h"

namespace {

using testing::HasSubstr;

TEST(GnssSim, LinkIsThereWhileItRunsAndReplacesOnlyLinks) {
  const test::TempDir folder;
  const std::string link = folder / "gnss";
  std::filesystem::create_symlink("/nowhere", link);
  for (const int signal : {SIGINT, SIGTERM}) {
    test::Process simulator({test::program("gnss-sim"), "--link", link});
    EXPECT_TRUE(simulator.wait_for_output("\n", 5000)) << simulator.err();
    EXPECT_EQ(std::filesystem::read_symlink(link).string() + "\n", simulator.out());
    simulator.signal(signal);
    EXPECT_EQ(simulator.wait_for_exit(500), 0);
    EXPECT_THAT(simulator.err(), HasSubstr("epochs"));
    EXPECT_FALSE(std::filesystem::is_symlink(link));
  }
  const std::string file = folder.write("file", "precious");
  test::Process refused({test::program("gnss-sim"), "--link", file});
  EXPECT_EQ(refused.wait_for_exit(2000), 2);
  EXPECT_THAT(refused.err(), HasSubstr(file + ": File exists"));
  EXPECT_EQ(std::filesystem::file_size(file), 8U);
}

TEST(GnssSim, WrongOptionsAreExplained) {
  const test::TempDir folder;
  const std::string route = folder.write("route.csv", "48,10,400\n48.01,ten,400\n");
  const struct {
    std::vector<std::string> options;
    std::string expected;
  } cases[] = {
      {{"--baud", "14400"}, "--baud: 14400"},
      {{"--fault", "drop=1.5"}, "fault drop: 1.5 is not within 0 to 1"},
      {{"--route", route}, route + ":2: column lon is not a number: ten"},
      {{"--replay", route}, "holds no RMC sentence"},
      {{"--loop"}, "--replay"},
      {{"--sentence-trace", folder / "no/trace"}, "No such file"},
      {{"--supported", "glonass"}, "used and not supported"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> argv = c.options;
    argv.insert(argv.begin(), test::program("gnss-sim"));
    test::Process process(argv);
    EXPECT_EQ(process.wait_for_exit(5000), 2) << c.expected;
    EXPECT_THAT(process.err(), HasSubstr(c.expected));
    EXPECT_EQ(process.out(), "");
  }
}

}  // namespace
