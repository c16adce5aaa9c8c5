#include "host/BitRuler.h"

#include <fmt/format.h>

#include <algorithm>

namespace Host {
namespace {

constexpr unsigned kBitsPerLine = 32;
constexpr unsigned kColumnsPerBit = 2;
constexpr unsigned kMargin = 6;
constexpr unsigned kColumns = kMargin + kBitsPerLine * kColumnsPerBit;

using Lane = std::vector<RulerField>;

bool overlap(RulerField const& a, RulerField const& b) { return a.low <= b.high && b.low <= a.high; }

// Fields that share bits go to different lanes, the wide ones last.
std::vector<Lane> lanesOf(std::span<RulerField const> fields) {
  std::vector<RulerField> narrowFirst(fields.begin(), fields.end());
  std::ranges::stable_sort(narrowFirst, {}, [](RulerField const& field) { return field.high - field.low; });
  std::vector<Lane> lanes;
  for (RulerField const& field : narrowFirst) {
    auto const isFree = [&field](Lane const& lane) {
      return std::ranges::none_of(lane, [&field](RulerField const& other) { return overlap(field, other); });
    };
    auto const lane = std::ranges::find_if(lanes, isFree);
    (lane == lanes.end() ? lanes.emplace_back() : *lane).push_back(field);
  }
  return lanes;
}

// The part of a field that lies in a line: its number, its name where it fits, and how it ends.
std::string box(RulerField const& field, unsigned columns, bool goesOn) {
  std::string text = fmt::format("{:<2}", field.number);
  if (columns <= text.size()) return text.substr(0, columns);
  char const end = goesOn ? '>' : '|';
  std::size_t const room = columns - text.size() - 1;
  if (room >= 4) {
    std::string_view const name = field.name.substr(0, room - 1);
    text += text.back() == ' ' ? "" : " ";
    text += name;
  }
  text.resize(columns - 1, '-');
  return text + end;
}

std::string laneLine(Lane const& lane, unsigned first) {
  unsigned const last = first + kBitsPerLine - 1;
  std::string line(kColumns, ' ');
  for (RulerField const& field : lane) {
    if (field.high < first || field.low > last) continue;
    unsigned const low = std::max(field.low, first);
    unsigned const high = std::min(field.high, last);
    unsigned const columns = (high - low + 1) * kColumnsPerBit;
    line.replace(kMargin + (low - first) * kColumnsPerBit, columns, box(field, columns, field.high > last));
  }
  return line;
}

std::string scaleLine(unsigned first, unsigned bits) {
  std::string line(kMargin, ' ');
  for (unsigned bit = first; bit < std::min(first + kBitsPerLine, bits); bit += 4) {
    line += bit % 8 == 0 ? fmt::format("{:<8}", bit) : fmt::format("{:<8}", ".");
  }
  return line;
}

std::string_view withoutTrailingSpace(std::string const& line) {
  return std::string_view(line).substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace

std::vector<std::string> bitRuler(std::span<RulerField const> fields, unsigned bits) {
  std::vector<Lane> const lanes = lanesOf(fields);
  std::vector<std::string> lines;
  for (unsigned first = 0; first < bits; first += kBitsPerLine) {
    std::vector<std::string> drawn;
    for (Lane const& lane : lanes) {
      std::string const line = laneLine(lane, first);
      if (auto const text = withoutTrailingSpace(line); !text.empty()) drawn.emplace_back(text);
    }
    if (drawn.empty()) continue;
    lines.emplace_back(withoutTrailingSpace(scaleLine(first, bits)));
    lines.insert(lines.end(), drawn.begin(), drawn.end());
  }
  return lines;
}

}  // namespace Host
