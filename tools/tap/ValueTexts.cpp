#include "tools/tap/ValueTexts.h"

#include <fstream>

#include "platform/base/ReadText.h"
#include "platform/rt/BuiltinSignals.h"
#include "platform/rt/DbcReader.h"
#include "platform/rt/DbcScanner.h"

namespace ecu::koru::tap {

namespace {

constexpr uint32_t EXTENDED_ID = 0x80000000;  // in the ids of a DBC file

std::string key_of(uint32_t dbc_id, std::string_view signal) {
  return std::to_string(dbc_id).append(" ").append(signal);
}

ValueTexts& shared() {
  static ValueTexts texts{rt::BUILTIN_SIGNALS};
  return texts;
}

}  // namespace

ValueTexts::ValueTexts(std::string_view dbc) {
  rt::DbcScanner in(dbc);
  try {
    while (!in.at_end()) {
      const bool is_table = in.peek_word() == "VAL_";
      in.skip();
      // The keyword is also in the list of keywords, and the table of an environment variable has no id.
      if (is_table && in.peek_word().empty()) read_table(in);
    }
  } catch (const rt::DbcProblem&) {  // a string without an end
  }
}

/// VAL_ 2566857214 navmodegnss_base 0 "no fix" 1 "2D" ;
void ValueTexts::read_table(rt::DbcScanner& in) try {
  const uint32_t id = in.whole_number("a message id");
  Table& table = m_tables[key_of(id, in.word("a signal name"))];
  while (!in.accept(';')) {
    const uint32_t value = in.whole_number("a value");
    table.insert_or_assign(value, in.string("its text in quotes"));
  }
} catch (const rt::DbcProblem&) {  // for example a negative value
}

const ValueTexts& ValueTexts::in_use() {
  return shared();
}

void ValueTexts::use(const std::string& file) {
  if (file.empty()) return;
  std::ifstream input(file, std::ios::binary);
  shared() = ValueTexts(read_text(input, rt::MAX_DBC_SIZE));
}

std::string_view ValueTexts::find(const rt::SignalGroup& group, const rt::Signal& signal) const {
  const auto& definition = group.definition();
  if (definition.raw_bytes || signal.status() != rt::SignalStatus::VALID) return {};
  const auto table =
      m_tables.find(key_of(definition.can_id | (definition.extended ? EXTENDED_ID : 0), signal.name()));
  if (table == m_tables.end()) return {};
  const auto text = table->second.find(signal.raw());
  return text != table->second.end() ? std::string_view(text->second) : std::string_view();
}

}  // namespace ecu::koru::tap
