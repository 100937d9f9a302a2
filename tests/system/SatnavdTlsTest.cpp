// Transport security: a broker that is not the right one, or that does not let the service in, is told and
// tried again; nothing is ever sent to it in plain text instead.

#include <map>

#include "support/Relay.h"
#include "system/SatnavdTest.h"

namespace {

using test::clock_ns;
using test::occurrences;
using test::PATIENCE_MS;
using test::Relay;
using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr int64_t S = 1'000'000'000;                    // ns
constexpr const char* EPOCH_READ = "m_GST_received. ";  // with the log flag for it

void run(const Words& argv) {
  test::Process process(argv);
  if (process.wait_for_exit(PATIENCE_MS) != 0) throw std::runtime_error(argv[0] + ": " + process.err());
}

/// Two authorities and what they have signed, all with one key, and password files: made once.
class Credentials {
 public:
  Credentials() {
    run({"openssl", "ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", file("key")});
    for (const char* name : {"ours", "foreign"}) {
      run({"openssl", "req", "-x509", "-days", "2", "-subj", std::string("/CN=") + name, "-key", file("key"),
           "-out", file(name)});
    }
    sign("peer", "ours", "IP:127.0.0.1", "2");
    sign("foreign-peer", "foreign", "IP:127.0.0.1", "2");
    sign("expired", "ours", "IP:127.0.0.1", "-1");
    sign("elsewhere", "ours", "DNS:elsewhere.test", "2");
    for (const char* word : {"right", "wrong"}) {
      m_folder.write(word, std::string(word) + "\r\nsecond line\n");
      m_folder.write(std::string("only-") + word, "");
      run({"mosquitto_passwd", "-b", file(std::string("only-") + word), "user", word});
    }
    m_folder.write("empty", "");
    m_folder.write("empty-line", "\nright\n");
    m_folder.write("garbage", "no key\n");
    run({"openssl", "ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", file("other-key")});
    run({"openssl", "ec", "-in", file("key"), "-aes128", "-passout", "pass:secret", "-out",
         file("locked-key")});
    run({"install", "-m", "000", file("key"), file("unreadable")});
  }
  [[nodiscard]] std::string file(const std::string& name) const { return m_folder / name; }

 private:
  void sign(const std::string& name, const std::string& authority, const std::string& host,
            const char* days) const {
    const std::string request = file(name + ".csr");
    run({"openssl", "req", "-new", "-subj", "/CN=" + name, "-addext", "subjectAltName=" + host, "-key",
         file("key"), "-out", request});
    run({"openssl", "x509", "-req", "-in", request, "-CA", file(authority), "-CAkey", file("key"),
         "-copy_extensions", "copy", "-days", days, "-out", file(name)});
  }

  test::TempDir m_folder;
};

const Credentials& credentials() {
  static const Credentials made;
  return made;
}

std::string key(const std::string& name, const std::string& file) {
  return name + " = " + (file.starts_with('/') ? file : credentials().file(file)) + "\n";
}

std::string trusting(const std::string& authority) {
  return key("tls_ca", authority);
}

std::string presenting(const std::string& certificate) {
  return key("tls_cert", certificate) + key("tls_key", "key");
}

std::string login(const std::string& password) {
  return "username = user\n" + key("password_file", password);
}

/// Every door of the broker; the test's own tools go in by its first one, which is plain and open.
enum Door { OPEN, TLS, MUTUAL, OLD_LOGIN, EXPIRED, ELSEWHERE, FOREIGN, DOORS };

using Ports = std::array<uint16_t, DOORS>;

Ports free_ports() {
  Ports ports{};
  for (auto& port : ports) port = test::free_port();
  return ports;
}

Words doors(const Ports& ports) {
  Words lines;
  const auto door = [&](Door which, const char* certificate, const Words& more) {
    lines.push_back("listener " + std::to_string(ports[which]) + " 127.0.0.1");
    lines.push_back("cafile " + credentials().file("ours"));
    lines.push_back("certfile " + credentials().file(certificate));
    lines.push_back("keyfile " + credentials().file("key"));
    lines.insert(lines.end(), more.begin(), more.end());
  };
  const std::string passwords = "password_file " + credentials().file("only-");
  door(TLS, "peer", {"allow_anonymous true"});
  door(MUTUAL, "peer", {"require_certificate true", "allow_anonymous false", passwords + "right"});
  door(OLD_LOGIN, "peer", {"require_certificate true", "allow_anonymous false", passwords + "wrong"});
  door(EXPIRED, "expired", {"allow_anonymous true"});
  door(ELSEWHERE, "elsewhere", {"allow_anonymous true"});
  door(FOREIGN, "foreign-peer", {"allow_anonymous true"});
  return lines;
}

class SatnavdTls : public test::SatnavdTest {
 protected:
  SatnavdTls() : SatnavdTls(free_ports()) {}
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(SatnavdTest::SetUp());
    publish_unit();
  }
  [[nodiscard]] uint16_t port(Door door) const { return door == OPEN ? broker.port() : m_ports[door]; }

 private:
  explicit SatnavdTls(const Ports& ports) : SatnavdTest(doors(ports)), m_ports(ports) {}
  const Ports m_ports;
};

/// A service that is at work through a door that suits it, until its connection is led to another one.
struct Row {
  const char* name;
  std::string config;
  Door suits, refuses;
  std::string told;
};

struct Unit {
  std::unique_ptr<Relay> relay;
  std::unique_ptr<test::Process> receiver, service;
  std::string publishes;  // in the broker's log
};

bool is_secret(const Relay::Connection& connection) {
  if (connection.sent.empty()) return true;  // it has just begun
  return connection.sent.starts_with("\x16\x03") && connection.sent.find("MQTT") == std::string::npos &&
         connection.sent.find("system/") == std::string::npos &&
         connection.sent.find("$GN") == std::string::npos;
}

/// 1 s after the loss, then 2 s, then 4 s.
void expect_back_off(const Relay& relay, int64_t cut_ns) {
  const auto tries = relay.connections();
  ASSERT_GE(tries.size(), 3U);
  int64_t before = cut_ns;
  for (size_t i = 0; i < 3; ++i) {
    const int64_t expected = (int64_t{1} << i) * S;
    EXPECT_GT(tries[i].at_ns - before, expected - S / 10) << i;
    EXPECT_LT(tries[i].at_ns - before, expected + S * 9 / 10) << i;
    before = tries[i].at_ns;
  }
}

TEST_F(SatnavdTls, RefusalsAreToldTriedAgainAndNeverLeadToPlainText) {
  const Row rows[] = {
      {"all is right", trusting("ours") + presenting("peer") + login("right"), MUTUAL, MUTUAL, ""},
      {"other authority", trusting("foreign"), FOREIGN, TLS, "not signed by tls_ca, or expired"},
      {"certificate expired", trusting("ours"), TLS, EXPIRED, "not signed by tls_ca, or expired"},
      {"other host's certificate", trusting("ours"), TLS, ELSEWHERE, "host name verification failed"},
      {"no client certificate", trusting("ours") + login("right"), TLS, MUTUAL, "certificate required"},
      {"wrong password", trusting("ours") + presenting("peer") + login("wrong"), OLD_LOGIN, MUTUAL,
       "refused the login"},
      {"TLS to a plain port", trusting("ours"), TLS, OPEN, "does its port speak TLS?"},
      {"plain to a TLS port", "", OPEN, TLS, "does its port expect TLS?"},
  };
  std::vector<Unit> units;
  for (const Row& row : rows) {
    const std::string link = folder / "receiver-" + std::to_string(units.size());
    units.push_back({std::make_unique<Relay>(port(row.suits)),
                     std::make_unique<test::Process>(Words{test::program("gnss-sim"), "--link", link}),
                     nullptr, "PUBLISH from satnavd-" + std::to_string(units.size() + 1) + " "});
    Unit& unit = units.back();
    unit.service = satnavd(
        "port = " + std::to_string(unit.relay->port()) + "\ngnss_device = " + link + "\n" + row.config,
        {"-v", "-d", "0x2000"});
  }
  const auto each = [&](const auto& check) {
    for (size_t i = 0; i < units.size(); ++i) {
      SCOPED_TRACE(rows[i].name);
      check(rows[i], units[i]);
    }
  };
  const auto published = [&](const Unit& unit, size_t count) {
    return test::eventually([&] { return occurrences(broker.log(), unit.publishes) >= count; }, PATIENCE_MS);
  };
  test::Tap tap(broker);
  each([&](const Row&, Unit& unit) { EXPECT_TRUE(published(unit, 3)) << unit.service->err(); });
  EXPECT_TRUE(tap.gets(2, test::VALID));

  const int64_t cut_ns = clock_ns(CLOCK_MONOTONIC);
  each([&](const Row& row, Unit& unit) { unit.relay->retarget(port(row.refuses)); });
  EXPECT_TRUE(units[0].service->wait_for_output("Connected again", PATIENCE_MS));
  std::map<const Unit*, size_t> publications, epochs;
  each([&](const Row&, Unit& unit) {
    publications[&unit] = occurrences(broker.log(), unit.publishes);
    epochs[&unit] = occurrences(unit.service->err(), EPOCH_READ);
  });
  each([&](const Row& row, Unit& unit) {
    if (row.told.empty()) return;
    EXPECT_TRUE(test::eventually([&] { return unit.relay->connections().size() >= 3; }, PATIENCE_MS));
    expect_back_off(*unit.relay, cut_ns);
    EXPECT_EQ(occurrences(broker.log(), unit.publishes), publications[&unit]);
    EXPECT_GE(occurrences(unit.service->err(), EPOCH_READ), epochs[&unit] + 5);
  });

  each([&](const Row& row, Unit& unit) {
    for (const auto& connection : unit.relay->connections())
      EXPECT_TRUE(is_secret(connection) || row.config.empty());
    if (!row.told.empty()) unit.relay->retarget(port(row.suits));
  });
  each([&](const Row& row, Unit& unit) {
    EXPECT_TRUE(published(unit, publications[&unit] + 2));
    const std::string log = unit.service->err();
    EXPECT_EQ(occurrences(log, " ERROR "), row.told.empty() ? 0U : 1U) << log;
    EXPECT_THAT(log, HasSubstr(row.told));
    EXPECT_EQ(occurrences(log, "Connected again"), 1U);
    unit.relay->retarget(port(row.refuses));
  });
  each([&](const Row& row, Unit& unit) {
    if (!row.told.empty()) {
      EXPECT_TRUE(test::eventually([&] { return !unit.relay->connections().empty(); }, PATIENCE_MS));
    }
    unit.service->signal(SIGTERM);
    EXPECT_EQ(unit.service->wait_for_exit(2000), 0);
  });
}

TEST_F(SatnavdTls, FilesThatCannotBeUsedPreventTheConnection) {
  const std::string good = trusting("ours") + presenting("peer") + login("right");
  const struct {
    std::string config, told;
    bool found_when_connecting = false;
  } rows[] = {
      {"username =\n", "needs username too"},
      {key("password_file", "/none"), "the file of password_file, \"/none\", cannot be read"},
      {key("password_file", "unreadable"), "cannot be read or is empty"},
      {key("password_file", "empty-line"), "is no password"},
      {key("tls_ca", "/none"), "the file of tls_ca, \"/none\", cannot be read"},
      {key("tls_ca", "garbage"), "Unable to load CA certificates", true},
      {key("tls_cert", "garbage"), "Unable to load client certificate", true},
      {key("tls_key", "unreadable"), "cannot be read or is empty"},
      {key("tls_key", "empty"), "cannot be read or is empty"},
      {key("tls_key", "other-key"), "key values mismatch", true},
      {key("tls_key", "locked-key"), "Unable to load client key", true},
      {"tls_ca =\n", "needs tls_ca too"},
      {"tls_cert =\n", "needs tls_cert too"},
      {"tls_key =\n", "needs tls_key too"},
  };
  // Root may read everything unless it has given that up.
  const Words launcher = geteuid() == 0 ? Words{"setpriv", "--bounding-set=-all"} : Words{};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config);
    Relay relay(port(MUTUAL));
    const auto service =
        satnavd("connect_timeout_ms = 300\nvar_timeout_ms = 50\nport = " + std::to_string(relay.port()) +
                    "\n" + good + row.config,
                {}, launcher);
    EXPECT_EQ(service->wait_for_exit(PATIENCE_MS), 1);
    EXPECT_EQ(occurrences(service->err(), " ERROR "), 1U) << service->err();
    EXPECT_THAT(service->err(), HasSubstr(row.told));
    for (const auto& connection : relay.connections()) {
      EXPECT_TRUE(row.found_when_connecting);
      EXPECT_EQ(connection.sent, "");
    }
  }
}

}  // namespace
