#include <utility>

#include "platform/base/Logging.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "platform/rt/BuiltinSignals.h"
#include "platform/rt/DbcReader.h"
#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::rt {

namespace {

constexpr auto LOG = logging::module("koru.rt");

constexpr std::string_view SYSTEM_PREFIX = "rt/system/";
constexpr uint16_t PROTOCOL_TYPE = 1;

std::shared_ptr<const SignalDatabase> built_in_database() {
  DbcResult result = parse_dbc(BUILTIN_SIGNALS, "built-in");
  if (result.database) return result.database;
  LOG.error("signal database ", result.error.text());
  return std::make_shared<const SignalDatabase>(std::vector<GroupDefinition>());
}

std::shared_ptr<const GroupDefinition> single_signal(const std::string& topic, std::string_view name,
                                                     unsigned bytes, bool raw_bytes) {
  GroupDefinition group;
  group.name = name;
  group.length = bytes;
  group.raw_bytes = raw_bytes;
  group.tx_topic = topic;
  SignalDefinition& signal = group.signals.emplace_back();
  signal.name = name;
  signal.width = bytes * 8;
  signal.coding = SignalCoding::EVERY_VALUE;
  return std::make_shared<const GroupDefinition>(std::move(group));
}

/// Returns the group of a system topic, which no database needs to hold; null for any other topic.
std::shared_ptr<const GroupDefinition> system_group(const std::string& topic) {
  if (topic == topic::GNSS_TIMESTAMP) {
    static const auto time_stamp = single_signal(topic, "timestamp_ns", sizeof(uint64_t), false);
    return time_stamp;
  }
  if (!topic.starts_with(SYSTEM_PREFIX)) return nullptr;
  const std::string_view name = std::string_view(topic).substr(SYSTEM_PREFIX.size());
  if (name.empty() || name.find('/') != std::string_view::npos) return nullptr;
  return single_signal(topic, name, 1, true);
}

/// Returns the topics and signals of the built-in groups that this database does not hold, for a record.
std::string missing(const SignalDatabase& database) {
  std::string result;
  const std::shared_ptr<const SignalDatabase> built_in = built_in_database();
  for (const GroupDefinition& wanted : built_in->groups()) {
    for (const std::string& topic : {wanted.tx_topic, wanted.rx_topic}) {
      const GroupDefinition* const group = database.find(topic);
      if (!topic.empty() && group == nullptr) result += " " + topic;
      for (const SignalDefinition& signal : wanted.signals) {
        if (group != nullptr && group->signal(signal.name) == nullptr)
          result.append(" ").append(topic).append(":").append(signal.name);
      }
    }
  }
  return result;
}

UnpackResult failure(std::string error) {
  return {false, {}, std::move(error)};
}

}  // namespace

SignalAdapter::SignalAdapter() : SignalAdapter(built_in_database()) {}

SignalAdapter& SignalAdapter::instance() {
  static SignalAdapter adapter;
  return adapter;
}

DatabaseReading read_database(const std::string& path) {
  DbcResult result = load_dbc(path);
  const auto finding = [](logging::Level level, std::string record, std::string taken) {
    return config::Finding{"signal_database", level, std::move(record), std::move(taken)};
  };
  if (!result.database) {
    return {nullptr,
            finding(logging::Level::ERROR,
                    logging::text("signal database ", result.error.text(), "; the built-in one is used"),
                    "the built-in one")};
  }
  const std::string absent = missing(*result.database);
  if (absent.empty()) return {std::move(result.database), std::nullopt};
  return {std::move(result.database),
          finding(logging::Level::WARNING,
                  logging::text("signal database ", logging::escaped(path), " does not hold", absent), {})};
}

bool SignalAdapter::load_database(const std::string& path) {
  auto [database, finding] = read_database(path);
  const bool loaded = database != nullptr;
  if (loaded) LOG.info("signal database ", logging::escaped(path), ", groups: ", database->groups().size());
  if (finding) config::log(LOG, *finding);
  if (!loaded) database = built_in_database();
  const std::lock_guard lock(m_mutex);
  m_database.swap(database);
  return loaded;
}

std::shared_ptr<const SignalDatabase> SignalAdapter::database() const {
  const std::lock_guard lock(m_mutex);
  return m_database;
}

std::shared_ptr<const GroupDefinition> SignalAdapter::definition_of(const std::string& topic) const {
  auto in_use = database();
  const GroupDefinition* definition = in_use->find(topic);
  if (definition == nullptr) return system_group(topic);
  return {std::move(in_use), definition};  // keeps the whole database alive
}

SignalGroup SignalAdapter::create_sg(const std::string& topic) const {
  auto definition = definition_of(topic);
  if (!definition) return {};
  return {std::move(definition), topic};
}

bool SignalAdapter::pack(const SignalGroup& group, com::Message& out) const {
  if (!group.is_valid()) {
    out = com::Message{};
    return false;
  }
  pb::RtSignal body;
  body.set_value(group.bytes().data(), group.bytes().size());
  return com::PbInternalMessageAdapter<pb::RtSignal>(PROTOCOL_TYPE).serialize(body, out);
}

std::optional<com::Message> SignalAdapter::pack(const SignalGroup& group) const {
  com::Message message;
  if (!pack(group, message)) return std::nullopt;
  return message;
}

UnpackResult SignalAdapter::unpack(const std::string& topic, const com::Message& message) const {
  SignalGroup group = create_sg(topic);
  if (!group.is_valid()) return failure("the topic has no signal group");
  const auto result = com::PbInternalMessageAdapter<pb::RtSignal>(PROTOCOL_TYPE).deserialize(message);
  if (!result.success) return failure("the envelope cannot be decoded");
  const std::string& value = result.body.value();
  const size_t length = group.definition().length;
  if (value.size() < length) {
    return failure(logging::text("the payload has ", value.size(), " bytes, the group ", length));
  }
  const bool raw_bytes = group.definition().raw_bytes;
  if (raw_bytes && value.size() > GroupDefinition::MAX_LENGTH) return failure("the payload is too long");
  const auto* data = reinterpret_cast<const uint8_t*>(value.data());
  group.assign({data, raw_bytes ? value.size() : length});
  return {true, std::move(group), {}};
}

}  // namespace ecu::koru::rt
