// Transport security: a wrong broker, or one that refuses the service, is logged and tried again. The service
// never falls back to plain text.

#include "system/SatnavdTest.h"

namespace {

using namespace test;
using namespace testing;

void run(const Words& argv) {
  Process process(argv);
  if (process.wait_for_exit(PATIENCE_MS) != 0) throw std::runtime_error(argv[0] + ": " + process.err());
}

/// Returns the path of a file that credentials.sh makes. The script runs once.
std::string credential(const std::string& name) {
  static const test::TempDir folder;
  static const bool made = [] { return run({CREDENTIALS, folder.path()}), true; }();
  return made ? folder / name : "";
}

std::string key(const std::string& name, const std::string& file) {
  return name + " = " + (file.starts_with('/') ? file : credential(file)) + "\n";
}

std::string presenting(const std::string& certificate) {
  return key("tls_cert", certificate) + key("tls_key", "key");
}

std::string login(const std::string& password) {
  return "username = user\n" + key("password_file", password);
}

/// The kinds of listeners at the broker's port, and the files of each.
enum Door { OPEN, TLS, MUTUAL, OLD_LOGIN, EXPIRED, TOO_EARLY, ELSEWHERE, FOREIGN, OF_OLD, FOR_CLIENTS };
constexpr struct {
  const char *certificate, *logins;
} DOORS[] = {{nullptr, nullptr},   {"peer", nullptr},       {"peer", "only-right"}, {"peer", "only-wrong"},
             {"expired", nullptr}, {"too-early", nullptr},  {"elsewhere", nullptr}, {"foreign-peer", nullptr},
             {"of-old", nullptr},  {"for-clients", nullptr}};

/// A broker with such a listener beside its own, which is plain and open.
class Doorway {
 public:
  explicit Doorway(Door door) { lead_to(door); }
  /// Restarts the broker with that listener, which ends all connections.
  void lead_to(Door door) {
    const auto& [certificate, logins] = DOORS[door];
    const auto line = [](const char* name, const char* file) {
      return std::string(name) + " " + credential(file);
    };
    Words lines{"listener " + std::to_string(port) + " 127.0.0.1"};
    if (certificate != nullptr)
      lines.insert(lines.end(),
                   {line("cafile", "ours"), line("certfile", certificate), line("keyfile", "key")});
    lines.push_back(logins != nullptr ? line("password_file", logins) : "allow_anonymous true");
    if (logins != nullptr) lines.emplace_back("require_certificate true");
    broker.kill();
    broker.configure(lines);
    EXPECT_TRUE(broker.start());
  }
  [[nodiscard]] bool sees(const std::string& text, size_t count) const {
    return eventually([&] { return occurrences(broker.log(), text) >= count; }, PATIENCE_MS);
  }
  /// Expects that no client logged in, and that none spoke plain text to a TLS listener.
  void expect_nothing_told() const {
    EXPECT_THAT(broker.log(), Not(HasSubstr("New client connected")));
    EXPECT_THAT(broker.log(), Not(HasSubstr("wrong version number")));  // the broker logs this
  }

  const uint16_t port = free_port();
  Broker broker;
};

using SatnavdTls = test::SatnavdTest;

TEST_F(SatnavdTls, RefusalsAreToldTriedAgainAndNeverLeadToPlainText) {
  // Each service first works through a door that suits it. Then its port leads to another door.
  const struct Row {
    const char* name;
    std::string config;
    Door suits, refuses;
    std::string told;
    size_t errors = 1;
  } rows[] = {
      {"all is right", key("tls_ca", "ours") + presenting("peer") + login("right"), MUTUAL, MUTUAL, "", 0},
      {"other authority", key("tls_ca", "foreign"), FOREIGN, TLS, "is not signed by tls_ca"},
      {"certificate expired", key("tls_ca", "ours"), TLS, EXPIRED, "the broker's certificate has expired"},
      {"authority expired", key("tls_ca", "ours-and-old"), TLS, OF_OLD,
       "the authority's certificate has expired"},
      {"certificate for clients", key("tls_ca", "ours"), TLS, FOR_CLIENTS,
       "certificate cannot be trusted: unsuitable"},
      {"certificate of the future", key("tls_ca", "ours"), TLS, TOO_EARLY, "is not valid yet"},
      {"other host's certificate", key("tls_ca", "ours"), TLS, ELSEWHERE, "is of another host"},
      {"no client certificate", key("tls_ca", "ours") + login("right"), TLS, MUTUAL, "certificate required"},
      {"wrong password", key("tls_ca", "ours") + presenting("peer") + login("wrong"), OLD_LOGIN, MUTUAL,
       "refused the login"},
      // A forwarder without a broker also closes connections like this, so it is not an error.
      {"TLS to a plain port", key("tls_ca", "ours"), TLS, OPEN, "Connection lost", 0},
      {"plain to a TLS port", "", OPEN, TLS, "Connection lost", 0},
  };
  struct Unit {
    std::unique_ptr<Doorway> doorway;
    std::unique_ptr<Process> service;
    int64_t cut_ns = 0;
  };
  std::vector<Unit> units;
  for (const Row& row : rows) {
    units.push_back({std::make_unique<Doorway>(row.suits), nullptr});
    const Doorway& doorway = *units.back().doorway;
    run(tool({"ecu-sim"}, doorway.broker));
    units.back().service = satnavd("port = " + std::to_string(doorway.port) + "\n" + row.config, {"-v"});
  }
  const auto each = [&](const auto& check) {
    for (size_t i = 0; i < units.size() && !HasFatalFailure(); ++i) {
      SCOPED_TRACE(rows[i].name);
      check(rows[i], units[i]);
    }
  };
  const std::string fix = "'system/gnss/data'";
  each([&](const Row&, Unit& unit) { ASSERT_TRUE(unit.doorway->sees(fix, 2)) << unit.service->err(); });

  each([&](const Row& row, Unit& unit) {
    unit.cut_ns = clock_ns(CLOCK_MONOTONIC);
    unit.doorway->lead_to(row.refuses);
  });
  each([&](const Row& row, Unit& unit) {
    if (row.told.empty()) return;
    // The service tries again after 1 s and after 2 s more. Broker::start() made the other connection.
    ASSERT_TRUE(unit.doorway->sees("connection from 127.0.0.1", 1 + 2)) << unit.doorway->broker.log();
    EXPECT_GT(clock_ns(CLOCK_MONOTONIC) - unit.cut_ns, 2 * S);
    if (!row.config.empty()) unit.doorway->expect_nothing_told();
    EXPECT_TRUE(logged(*unit.service, row.told, 1));
    EXPECT_TRUE(logged(*unit.service, "DATA TO PUBLISH BUT NO MQTT", 2));
    unit.doorway->lead_to(row.suits);
  });
  each([&](const Row& row, Unit& unit) {
    ASSERT_TRUE(unit.doorway->sees(fix, 2));
    const std::string log = unit.service->err();
    EXPECT_EQ(occurrences(log, " ERROR koru.com.mqtt"), row.errors) << log;
    EXPECT_EQ(occurrences(log, "Connected again"), 1U);
    expect_end(*unit.service);
  });
}

TEST_F(SatnavdTls, FilesThatCannotBeUsedPreventTheConnection) {
  const std::string good = key("tls_ca", "ours") + presenting("peer") + login("right");
  const struct {
    std::string config, told;
  } rows[] = {
      {"username =\n", "needs username too"},
      {key("password_file", "/none"), "the file of password_file, \"/none\", cannot be read"},
      {key("password_file", "empty-line"), "is no password"},
      {key("tls_ca", "/none"), "the file of tls_ca, \"/none\", cannot be read"},
      {key("tls_ca", "garbage"), "Unable to load CA certificates"},
      {key("tls_cert", "garbage"), "Unable to load client certificate"},
      {key("tls_key", "unreadable"), "cannot be read or is empty"},
      {key("tls_key", "empty"), "cannot be read or is empty"},
      {key("tls_key", "other-key"), "key values mismatch"},
      {key("tls_key", "locked-key"), "Unable to load client key"},
      {"tls_ca =\n", "needs tls_ca too"},
      {"tls_cert =\n", "needs tls_cert too"},
      {"tls_key =\n", "needs tls_key too"},
  };
  const Doorway doorway(MUTUAL);
  // Root can read every file unless it gives up its capabilities.
  const Words launcher = geteuid() == 0 ? Words{"setpriv", "--bounding-set=-all"} : Words{};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config);
    const auto service =
        satnavd("connect_timeout_ms = 300\nvar_timeout_ms = 50\nport = " + std::to_string(doorway.port) +
                    "\n" + good + row.config,
                {}, launcher);
    ASSERT_EQ(service->wait_for_exit(5000), 1) << service->err();
    EXPECT_EQ(occurrences(service->err(), " ERROR "), 1U) << service->err();
    EXPECT_THAT(service->err(), HasSubstr(row.told));
    doorway.expect_nothing_told();
  }
}

}  // namespace
