#include "tools/tap/Sentences.h"

#include <algorithm>

#include "tools/tap/Decode.h"

namespace ecu::koru::tap {

namespace {

constexpr std::string_view LINE_END = "\r\n";

bool is_printable(char character) {
  return character >= ' ' && character <= '~';
}

}  // namespace

bool is_sentence(std::string_view text) {
  if (!text.ends_with(LINE_END) || (text.front() != '$' && text.front() != '!')) return false;
  text.remove_suffix(LINE_END.size());
  return std::all_of(text.begin(), text.end(), is_printable);
}

std::string sentences_of(const Arrival& arrival) {
  if (arrival.retained) return {};
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  const auto* const fix = std::get_if<pb::GnssData>(&decoded.body);
  std::string out;
  if (fix == nullptr) return out;
  for (const auto& sentence : fix->nmea()) {
    if (is_sentence(sentence)) out.append(sentence);
  }
  return out;
}

std::vector<std::string_view> sentence_fields(std::string_view sentence) {
  std::vector<std::string_view> out;
  sentence = sentence.substr(0, sentence.find_first_of("*\r\n"));
  sentence.remove_prefix(std::min<size_t>(1, sentence.size()));
  while (true) {
    const size_t comma = sentence.find(',');
    out.push_back(sentence.substr(0, comma));
    if (comma == std::string_view::npos) return out;
    sentence.remove_prefix(comma + 1);
  }
}

std::vector<std::string_view> find_sentence(const pb::GnssData& fix, std::string_view formatter) {
  constexpr size_t ADDRESS_LENGTH = 5;  // a talker of two letters and a formatter of three
  for (const auto& sentence : fix.nmea()) {
    auto fields = sentence_fields(sentence);
    if (fields[0].size() == ADDRESS_LENGTH && fields[0].ends_with(formatter)) return fields;
  }
  return {};
}

}  // namespace ecu::koru::tap
