#include "platform/rt/DbcReader.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/base/Logging.h"
#include "platform/base/ReadText.h"
#include "platform/rt/DbcScanner.h"

namespace ecu::koru::rt {

namespace {

constexpr uint32_t EXTENDED_ID = 0x80000000;
constexpr uint32_t MAX_EXTENDED_ID = 0x1FFFFFFF;
constexpr uint32_t MAX_STANDARD_ID = 0x7FF;
constexpr unsigned MAX_WIDTH = 64;
constexpr unsigned MAX_BITS = GroupDefinition::MAX_LENGTH * 8;
constexpr size_t MAX_TOPIC = 1000;

constexpr std::string_view TX_TOPIC = "TxTopic";
constexpr std::string_view RX_TOPIC = "RxTopic";

/// The statements that end with a semicolon and say nothing about groups.
constexpr std::array<std::string_view, 20> SKIPPED_KEYWORDS{
    "BA_DEF_",          "BA_DEF_DEF_REL_", "BA_DEF_REL_",   "BA_DEF_SGTYPE_", "BA_REL_",
    "BA_SGTYPE_",       "BO_TX_BU_",       "CAT_",          "CAT_DEF_",       "CM_",
    "ENVVAR_DATA_",     "EV_DATA_",        "SGTYPE_",       "SGTYPE_VAL_",    "SG_MUL_VAL_",
    "SIGTYPE_VALTYPE_", "SIG_GROUP_",      "SIG_TYPE_REF_", "VAL_",           "VAL_TABLE_"};

/// A topic and the number of the line that sets it, or 0 if none does.
struct TopicText {
  std::string text;
  unsigned line = 0;
};

/// A message while it is read. Its first problem counts only if the message turns out to have a topic.
struct Draft {
  GroupDefinition group;
  unsigned line = 0;
  std::bitset<MAX_BITS> taken;  // bits that signals use
  std::optional<DbcProblem> problem;
  TopicText tx;
  TopicText rx;

  /// Marks the signal's bits as taken. Returns why the signal does not fit; empty if it does.
  std::string place(const SignalDefinition& signal);
  void refuse(unsigned at, const std::string& reason) {
    if (!problem) problem.emplace(at, reason);
  }
};

std::string Draft::place(const SignalDefinition& signal) {
  if (signal.width == 0 || signal.width > MAX_WIDTH) return "the width is not 1 to 64 bits";
  if (uint64_t{signal.start_bit} + signal.width > uint64_t{group.length} * 8)
    return "it lies outside the message";
  if (group.length > GroupDefinition::MAX_LENGTH) return "the message is too long";
  if (group.signal(signal.name) != nullptr) return "the name is given twice";
  if (!std::isfinite(signal.scale.physical(signal.max_raw()))) return "its values are too large";
  for (unsigned bit = signal.start_bit; bit < signal.start_bit + signal.width; ++bit) {
    if (taken.test(bit)) return "it overlaps another signal";
    taken.set(bit);
  }
  return {};
}

class DbcParser {
 public:
  explicit DbcParser(std::string_view text) : m_in(text) {}

  /// Throws DbcProblem.
  std::shared_ptr<const SignalDatabase> parse();

 private:
  using Handler = void (DbcParser::*)();
  struct Statement {
    std::string_view keyword;
    Handler handler;
    bool within_others;  // the keyword also names a kind of object
  };
  static const std::array<Statement, 10> STATEMENTS;
  static const Statement SKIPPED;
  static const Statement* statement(std::string_view keyword);

  void skip_to_semicolon();
  void skip_to_statement();
  void skip_new_symbols();
  void version();
  void message();
  void signal();
  void attribute();
  void attribute_default();
  void value_type();

  std::string layout(SignalDefinition& signal);
  void topic(TopicText& out);
  void topic_default(TopicText& out);
  std::shared_ptr<const SignalDatabase> finish();
  void finish_topic(Draft& draft, TopicText& topic, const TopicText& otherwise);

  DbcScanner m_in;
  unsigned m_line = 0;  // of the statement
  std::vector<Draft> m_drafts;
  std::unordered_map<uint32_t, size_t> m_by_id;
  std::unordered_set<std::string_view> m_names;
  std::unordered_set<std::string> m_topics;
  TopicText m_tx_default;
  TopicText m_rx_default;
  bool m_in_message = false;  // signals may follow
};

const std::array<DbcParser::Statement, 10> DbcParser::STATEMENTS{
    {{"BO_", &DbcParser::message, true},
     {"SG_", &DbcParser::signal, true},
     {"BA_", &DbcParser::attribute, false},
     {"BA_DEF_DEF_", &DbcParser::attribute_default, false},
     {"SIG_VALTYPE_", &DbcParser::value_type, false},
     {"NS_", &DbcParser::skip_new_symbols, false},
     {"VERSION", &DbcParser::version, false},
     {"BS_", &DbcParser::skip_to_statement, false},
     {"BU_", &DbcParser::skip_to_statement, true},
     {"EV_", &DbcParser::skip_to_semicolon, true}}};

const DbcParser::Statement DbcParser::SKIPPED{"", &DbcParser::skip_to_semicolon, false};

const DbcParser::Statement* DbcParser::statement(std::string_view keyword) {
  const auto* const found = std::ranges::find(STATEMENTS, keyword, &Statement::keyword);
  if (found != STATEMENTS.end()) return found;
  return std::ranges::find(SKIPPED_KEYWORDS, keyword) != SKIPPED_KEYWORDS.end() ? &SKIPPED : nullptr;
}

std::shared_ptr<const SignalDatabase> DbcParser::parse() {
  while (!m_in.at_end()) {
    m_line = m_in.line();
    const Statement* next = statement(m_in.peek_word());
    if (next == nullptr) throw DbcProblem(m_line, "expected a statement, found " + m_in.shown());
    m_in.skip();
    m_in_message = m_in_message && next->handler == &DbcParser::signal;
    (this->*next->handler)();
  }
  return finish();
}

void DbcParser::skip_to_semicolon() {
  while (!m_in.accept(';')) {
    const Statement* inner = statement(m_in.peek_word());
    if (m_in.at_end() || (inner != nullptr && !inner->within_others)) m_in.fail_expected("';'");
    m_in.skip();
  }
}

void DbcParser::skip_to_statement() {
  while (!m_in.at_end() && statement(m_in.peek_word()) == nullptr) m_in.skip();
}

/// Skips the list of keywords that the file may use, up to the bus speed or the nodes.
void DbcParser::skip_new_symbols() {
  while (!m_in.at_end() && m_in.peek_word() != "BS_" && m_in.peek_word() != "BU_") m_in.skip();
}

void DbcParser::version() {
  (void)m_in.string("the version in quotes");
}

/// BO_ 2566845438 VP1: 8 SENDER
void DbcParser::message() {
  Draft& draft = m_drafts.emplace_back();
  const uint32_t id = m_in.whole_number("a message id");
  const std::string_view name = m_in.word("a message name");
  m_in.expect(':');
  draft.group.length = m_in.whole_number("the message's length");
  (void)m_in.word("the message's sender");
  draft.line = m_line;
  draft.group.name = name;
  draft.group.extended = (id & EXTENDED_ID) != 0;
  draft.group.can_id = id & ~EXTENDED_ID;
  if (!m_by_id.emplace(id, m_drafts.size() - 1).second) {
    throw DbcProblem(m_line, logging::text("message id ", id, " is given twice"));
  }
  if (!m_names.insert(name).second)
    throw DbcProblem(m_line, logging::text("message ", name, " is given twice"));
  if (draft.group.can_id > (draft.group.extended ? MAX_EXTENDED_ID : MAX_STANDARD_ID)) {
    draft.refuse(m_line, logging::text("message ", name, ": there is no CAN id ", draft.group.can_id));
  }
  if (draft.group.length > GroupDefinition::MAX_LENGTH) {
    draft.refuse(m_line,
                 logging::text("message ", name, " is longer than ", GroupDefinition::MAX_LENGTH, " bytes"));
  }
  m_in_message = true;
}

/// SG_ altitude : 48|16@1+ (0.125,-2500) [-2500|5531.875] "m" RECEIVER,RECEIVER
void DbcParser::signal() {
  if (!m_in_message) throw DbcProblem(m_line, "a signal without a message before it");
  SignalDefinition signal;
  signal.name = m_in.word("a signal name");
  std::string fault = layout(signal);
  signal.unit = m_in.string("a unit in quotes");
  while (!m_in.peek_word().empty() && statement(m_in.peek_word()) == nullptr) {
    m_in.skip();
    (void)m_in.accept(',');
  }
  Draft& draft = m_drafts.back();
  if (fault.empty()) fault = draft.place(signal);
  if (fault.empty()) {
    draft.group.signals.push_back(std::move(signal));
  } else {
    draft.refuse(m_line,
                 logging::text("signal ", signal.name, " of message ", draft.group.name, ": ", fault));
  }
}

/// Reads from after the name to the physical range. Returns why the signal cannot be used; empty if it can.
std::string DbcParser::layout(SignalDefinition& signal) {
  std::string fault;
  if (!m_in.peek_word().empty()) {
    (void)m_in.word("':'");
    fault = "multiplexed signals are not supported";
  }
  m_in.expect(':');
  signal.start_bit = m_in.whole_number("the start bit");
  m_in.expect('|');
  signal.width = m_in.whole_number("the width in bits");
  m_in.expect('@');
  if (m_in.accept('0')) {
    fault = "big-endian signals (@0) are not supported";
  } else {
    m_in.expect('1');
  }
  if (m_in.accept('-')) {
    fault = "signed signals are not supported";
  } else {
    m_in.expect('+');
  }
  m_in.expect('(');
  const double factor = m_in.number("the factor");
  m_in.expect(',');
  const double offset = m_in.number("the offset");
  m_in.expect(')');
  if (factor == 0) fault = "the factor is 0";
  if (fault.empty()) signal.scale = SignalScale(factor, offset);
  m_in.expect('[');
  (void)m_in.number("the minimum");  // for people only: the raw value's ranges decide
  m_in.expect('|');
  (void)m_in.number("the maximum");
  m_in.expect(']');
  return fault;
}

/// BA_ "TxTopic" BO_ 2566845438 "topic";
void DbcParser::attribute() {
  const std::string name = m_in.string("an attribute's name in quotes");
  if (name != TX_TOPIC && name != RX_TOPIC) return skip_to_semicolon();
  if (m_in.peek_word() != "BO_") m_in.fail_expected("BO_");
  m_in.skip();
  const uint32_t id = m_in.whole_number("a message id");
  const auto found = m_by_id.find(id);
  if (found == m_by_id.end()) throw DbcProblem(m_line, logging::text("there is no message with id ", id));
  Draft& draft = m_drafts[found->second];
  topic(name == TX_TOPIC ? draft.tx : draft.rx);
}

/// BA_DEF_DEF_ "TxTopic" "";
void DbcParser::attribute_default() {
  const std::string name = m_in.string("an attribute's name in quotes");
  if (name == TX_TOPIC) {
    topic_default(m_tx_default);
  } else if (name == RX_TOPIC) {
    topic_default(m_rx_default);
  } else {
    skip_to_semicolon();
  }
}

void DbcParser::topic(TopicText& out) {
  if (out.line != 0) throw DbcProblem(m_line, "the topic is given twice");
  out.text = m_in.string("a topic in quotes");
  out.line = m_line;
  m_in.expect(';');
  const bool is_name = std::none_of(out.text.begin(), out.text.end(), [](unsigned char c) {
    return c == '+' || c == '#' || c == 0x7F || c < 0x20;
  });
  if (!is_name || out.text.size() > MAX_TOPIC) throw DbcProblem(m_line, "this is no topic to publish on");
}

/// A file merged from several may repeat a default, as long as it stays the same.
void DbcParser::topic_default(TopicText& out) {
  TopicText given;
  topic(given);
  if (out.line != 0 && given.text != out.text) throw DbcProblem(m_line, "the topic is given twice");
  out = std::move(given);
}

/// SIG_VALTYPE_ 2566845438 latitude : 1;
void DbcParser::value_type() {
  const uint32_t id = m_in.whole_number("a message id");
  const std::string_view name = m_in.word("a signal name");
  (void)m_in.accept(':');
  const uint32_t type = m_in.whole_number("the signal's type");
  m_in.expect(';');
  const auto found = m_by_id.find(id);
  if (found == m_by_id.end() || type == 0) return;
  Draft& draft = m_drafts[found->second];
  if (draft.group.signal(name) == nullptr) return;
  draft.refuse(m_line, logging::text("signal ", name, " of message ", draft.group.name,
                                     ": floating-point signals are not supported"));
}

void DbcParser::finish_topic(Draft& draft, TopicText& topic, const TopicText& otherwise) {
  if (topic.line == 0) topic = otherwise;
  if (topic.text.empty() || m_topics.insert(topic.text).second) return;
  draft.refuse(topic.line, logging::text("topic ", topic.text, " is given twice"));
}

std::shared_ptr<const SignalDatabase> DbcParser::finish() {
  std::vector<GroupDefinition> groups;
  std::optional<DbcProblem> first;
  for (Draft& draft : m_drafts) {
    finish_topic(draft, draft.tx, m_tx_default);
    finish_topic(draft, draft.rx, m_rx_default);
    if (draft.tx.text.empty() && draft.rx.text.empty()) continue;
    if (draft.group.signals.empty()) {
      draft.refuse(draft.line, logging::text("message ", draft.group.name, " has a topic and no signal"));
    }
    if (draft.problem && (!first || draft.problem->line() < first->line())) first = draft.problem;
    draft.group.tx_topic = std::move(draft.tx.text);
    draft.group.rx_topic = std::move(draft.rx.text);
    groups.push_back(std::move(draft.group));
  }
  if (first) throw DbcProblem(*first);
  if (groups.empty()) throw DbcProblem(m_in.line(), "no message has a TxTopic or RxTopic");
  return std::make_shared<const SignalDatabase>(std::move(groups));
}

/// Returns the bytes of a regular file, but at most one more than is accepted.
std::string read_file(const std::string& path) {
  std::error_code failed;
  if (!std::filesystem::is_regular_file(path, failed)) {
    throw DbcProblem(0, failed ? failed.message() : "this is not a regular file");
  }
  std::ifstream file(path, std::ios::binary);
  std::string text = read_text(file, MAX_DBC_SIZE + 1);
  if (!file.is_open() || file.bad()) throw DbcProblem(0, "the file cannot be read");
  return text;
}

std::shared_ptr<const SignalDatabase> parsed(std::string_view text) {
  if (text.size() > MAX_DBC_SIZE) throw DbcProblem(0, "the file is longer than 1 MiB");
  return DbcParser(text).parse();
}

/// Calls `read` and turns what it throws into the error.
template <typename Read>
DbcResult guarded(std::string_view file_name, Read read) noexcept {
  DbcResult result;
  try {
    result.error.file = file_name;
    result.database = read();
  } catch (const DbcProblem& problem) {
    result.error.line = problem.line();
    result.error.reason = problem.what();
  } catch (...) {
    result.error.reason = "out of memory";
  }
  return result;
}

}  // namespace

std::string DbcError::text() const {
  std::string text = logging::escaped(file);
  if (line != 0) text += logging::text(" line ", line);
  return text + ": " + logging::escaped(reason);
}

DbcResult parse_dbc(std::string_view text, std::string_view file_name) noexcept {
  return guarded(file_name, [=] { return parsed(text); });
}

DbcResult load_dbc(const std::string& path) noexcept {
  return guarded(path, [&] { return parsed(read_file(path)); });
}

}  // namespace ecu::koru::rt
