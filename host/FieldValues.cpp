#include "host/FieldValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "runtime/Detail/CopyBits.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

using LoamAsicUtils::FieldDescription;
using LoamAsicUtils::KeyMemberDescription;
using LoamAsicUtils::RowImage;
using LoamAsicUtils::TableDescription;
using Bits = std::vector<std::uint8_t>;

constexpr unsigned kNumberBits = 64;

unsigned widthOf(FieldDescription const& field) { return field.high - field.low + 1; }

// The largest value of so many bits.
std::string largest(unsigned width) {
  if (width <= kNumberBits) return fmt::format("{}", ~std::uint64_t{0} >> (kNumberBits - width));
  constexpr unsigned kDigitBits = 4;
  std::string const first = fmt::format("{:x}", (1U << (width - 1) % kDigitBits << 1) - 1);
  return "0x" + first + std::string((width - 1) / kDigitBits, 'f');
}

unsigned digitOf(char digit) {
  return static_cast<unsigned>(digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10);
}

// The low bits of a hex text; false where it is none, or doesn't fit.
bool readHex(std::string_view text, unsigned width, Bits& bits) {
  if (!text.starts_with("0x") || text.size() == 2) return false;
  text.remove_prefix(2);
  if (text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) return false;
  bits.assign((width + 7) / 8, 0);
  unsigned at = 0;
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit, at += 4) {
    for (unsigned bit = 0; bit < 4; ++bit) {
      if ((digitOf(*digit) >> bit & 1) == 0) continue;
      if (at + bit >= width) return false;
      bits[(at + bit) / 8] = static_cast<std::uint8_t>(bits[(at + bit) / 8] | 1U << (at + bit) % 8);
    }
  }
  return true;
}

bool readNumber(Json const& value, unsigned width, Bits& bits) {
  if (!value.is_number_unsigned() || width > kNumberBits) return false;
  auto const number = value.get<std::uint64_t>();
  if (number > ~std::uint64_t{0} >> (kNumberBits - width)) return false;
  bits.assign((width + 7) / 8, 0);
  for (std::size_t at = 0; at < bits.size(); ++at) bits[at] = static_cast<std::uint8_t>(number >> at * 8);
  return true;
}

Bits bitsOf(std::string_view table, FieldDescription const& field, Json const& value) {
  Bits bits;
  unsigned const width = widthOf(field);
  if (value.is_string() ? readHex(value.get_ref<std::string const&>(), width, bits)
                        : readNumber(value, width, bits))
    return bits;
  throw InputError(fmt::format("{}: field {}: {} is not 0{} to {}{}", table, field.name, textOf(value),
                               width > kNumberBits ? "x0" : "", largest(width),
                               width > kNumberBits ? ", in hex as a text" : ""));
}

Bits bitsIn(FieldDescription const& field, std::span<std::uint8_t const> row) {
  Bits bits((widthOf(field) + 7) / 8);
  Detail::copyBits(bits.data(), bits.size(), row.data(), row.size(), widthOf(field), 0, field.low);
  return bits;
}

void put(RowImage& row, FieldDescription const& field, Bits const& bits) {
  Detail::copyBits(row.data.data(), row.data.size(), bits.data(), bits.size(), widthOf(field), field.low, 0);
}

// The names of the views, in the order of their numbers.
std::vector<std::string_view> viewsOf(TableDescription const& table) {
  std::vector<std::string_view> views;
  for (FieldDescription const& field : table.fields)
    if (!field.view.empty() && std::ranges::find(views, field.view) == views.end())
      views.push_back(field.view);
  return views;
}

std::uint32_t viewNumber(TableDescription const& table, Json const& given) {
  auto const views = viewsOf(table);
  if (views.empty()) {
    if (given.is_null()) return 0;
    throw InputError(fmt::format("{}: view {}: the table has no views", table.name, textOf(given)));
  }
  if (!given.is_string()) {
    throw InputError(
        fmt::format("{}: view {}: a row is one of {}", table.name, textOf(given), fmt::join(views, ", ")));
  }
  auto const& name = given.get_ref<std::string const&>();
  auto const found = std::ranges::find(views, name);
  if (found == views.end()) throwUnknown(table.name, "view", name, views);
  return static_cast<std::uint32_t>(found - views.begin());
}

// What fields are still to agree with.
class GivenFields {
 public:
  explicit GivenFields(std::string_view table) : table_(table) {}

  // The row has the field by now.
  void add(FieldDescription const& field, Bits bits, RowImage const& row) {
    for (auto const& [earlier, value] : given_) {
      if (bitsIn(*earlier, row.data) == value) continue;
      throw InputError(fmt::format("{}: fields {} and {} contradict each other: they share bits {} to {}",
                                   table_, earlier->name, field.name, std::max(earlier->low, field.low),
                                   std::min(earlier->high, field.high)));
    }
    given_.emplace_back(&field, std::move(bits));
  }

 private:
  std::string_view table_;
  std::vector<std::pair<FieldDescription const*, Bits>> given_;
};

bool overlap(FieldDescription const& a, FieldDescription const& b) {
  return a.low <= b.high && b.low <= a.high;
}

// What of an exact-match entry isn't an agent's to set, and whose it is.
std::string_view ownerOf(std::string_view field) {
  static constexpr std::pair<std::string_view, std::string_view> kReserved[] = {
      {"key", "the operation's key gives it"},
      {"command", "the table's commands give it"},
      {"sweepBit", "reconciling gives it"},
      {"vmv", "reconciling finds entries by it"},
      {"entryType", "all entries of the table have the same"},
      {"appId", "all entries of the table have the same"},
      {"tid", "all entries of the table have the same"},
      {"wayIndex", "the chip gives it"},
      {"prefixNum", "the chip gives it"},
      {"address", "the chip gives it"},
      {"hits", "the chip gives it"},
      {"found", "the chip gives it"}};
  auto const* const found = std::ranges::find(kReserved, field, [](auto const& one) { return one.first; });
  return found == std::end(kReserved) ? std::string_view() : found->second;
}

// Of an exact-match entry an agent gives the result and nothing else: the key stands apart, and with another
// command, mark, format or database the chip would keep the entry where reconciling doesn't find it.
void checkSettable(TableDescription const& table, FieldDescription const& field, Bits const& bits) {
  if (table.family != LoamAsicUtils::TableFamily::exactMatch) return;
  std::string_view const owner = ownerOf(field.name);
  if (!owner.empty())
    throw InputError(fmt::format("{}: field {}: not to be set: {}", table.name, field.name, owner));
  for (FieldDescription const& reserved : table.fields) {
    if (ownerOf(reserved.name).empty() || !overlap(field, reserved)) continue;
    if (field.name == "payload" && reserved.name == "sweepBit") {
      if ((bits.front() & 1) == 0) continue;
      throw InputError(
          fmt::format("{}: field payload: its bit 0 is the sweepBit, which is 0 in what is set", table.name));
    }
    throw InputError(
        fmt::format("{}: field {}: not to be set: it has bits of {}", table.name, field.name, reserved.name));
  }
}

FieldDescription const& fieldNamed(TableDescription const& table,
                                   std::vector<FieldDescription const*> const& fields,
                                   std::string_view name) {
  auto const found =
      std::ranges::find(fields, name, [](FieldDescription const* field) { return field->name; });
  if (found != fields.end()) return **found;
  std::vector<std::string_view> names;
  names.reserve(fields.size());
  for (FieldDescription const* const field : fields) names.push_back(field->name);
  std::string_view const view = fields.front()->view;
  throwUnknown(view.empty() ? table.name : view, "field", name, names);
}

void putPresets(TableDescription const& table, std::vector<FieldDescription const*> const& fields,
                RowImage& row) {
  for (auto const& preset : table.presets) {
    for (FieldDescription const* const field : fields)
      if (field->name == preset.field) put(row, *field, bitsOf(table.name, *field, Json(preset.value)));
  }
}

std::uint64_t memberOf(TableDescription const& table, KeyMemberDescription const& member, Json const& value) {
  // The null of a key of one value is its largest.
  std::uint64_t const max = member.name == "value" ? member.max - 1 : member.max;
  Bits bits;
  if (value.is_string() ? readHex(value.get_ref<std::string const&>(), kNumberBits, bits)
                        : readNumber(value, kNumberBits, bits)) {
    std::uint64_t number = 0;
    for (std::size_t at = 0; at < bits.size(); ++at) number |= std::uint64_t{bits[at]} << at * 8;
    if (number >= member.min && number <= max) return number;
  }
  std::string const hint = max != member.max && value == Json(member.max) ? ": it names no row" : "";
  throw InputError(fmt::format("{}: key {}: {} is not {} to {}{}", table.name, member.name, textOf(value),
                               member.min, max, hint));
}

}  // namespace

std::vector<std::uint64_t> keyMembersOf(TableDescription const& table, Json const& key) {
  std::vector<std::string_view> names;
  for (auto const& member : table.key) names.push_back(member.name);
  if (!key.is_object()) {
    throw InputError(
        fmt::format("{}: key {}: not an object of {}", table.name, textOf(key), fmt::join(names, ", ")));
  }
  for (auto const& [name, value] : key.items())
    if (std::ranges::find(names, name) == names.end()) throwUnknown(table.name, "key member", name, names);
  std::vector<std::uint64_t> members;
  for (auto const& member : table.key) {
    auto const found = key.find(member.name);
    if (found == key.end()) throw InputError(fmt::format("{}: key {} is missing", table.name, member.name));
    members.push_back(memberOf(table, member, *found));
  }
  return members;
}

Json keyJson(TableDescription const& table, std::vector<std::uint64_t> const& members) {
  Json key = Json::object();
  for (std::size_t at = 0; at < members.size(); ++at) key[std::string(table.key[at].name)] = members[at];
  return key;
}

std::string keyText(TableDescription const& table, std::vector<std::uint64_t> const& members) {
  std::string text;
  for (std::size_t at = 0; at < members.size(); ++at)
    text += fmt::format("{}{}:{}", at == 0 ? "" : ",", table.key[at].name, members[at]);
  return text;
}

RowImage rowOf(TableDescription const& table, Json const& view, Json const& fields) {
  RowImage row{viewNumber(table, view), std::vector<std::uint8_t>(table.entryDataMaxSize)};
  auto const legal = fieldsOf(table, row.view);
  putPresets(table, legal, row);
  if (fields.is_null()) return row;
  if (!fields.is_object()) {
    throw InputError(fmt::format("{}: fields {}: not an object of fields", table.name, textOf(fields)));
  }
  GivenFields given(table.name);
  for (auto const& [name, value] : fields.items()) {
    FieldDescription const& field = fieldNamed(table, legal, name);
    Bits bits = bitsOf(table.name, field, value);
    checkSettable(table, field, bits);
    put(row, field, bits);
    given.add(field, std::move(bits), row);
  }
  return row;
}

std::string_view viewName(TableDescription const& table, std::uint32_t view) {
  auto const views = viewsOf(table);
  return view < views.size() ? views[view] : std::string_view();
}

std::vector<FieldDescription const*> fieldsOf(TableDescription const& table, std::uint32_t view) {
  std::string_view const name = viewName(table, view);
  std::vector<FieldDescription const*> fields;
  for (FieldDescription const& field : table.fields)
    if (field.view == name) fields.push_back(&field);
  return fields;
}

std::vector<FieldDescription const*> distinctFieldsOf(TableDescription const& table, std::uint32_t view) {
  std::vector<FieldDescription const*> distinct;
  auto const fields = fieldsOf(table, view);
  // The whole image, key and result of an exact-match entry say nothing that their parts don't, and the parts
  // of its key stand beside it.
  auto const isToldElsewhere = [&](FieldDescription const* told) {
    return table.family == LoamAsicUtils::TableFamily::exactMatch &&
           (std::ranges::find(table.key, told->name, &KeyMemberDescription::name) != table.key.end() ||
            std::ranges::any_of(fields, [&](FieldDescription const* part) {
              return told->low <= part->low && part->high <= told->high &&
                     (told->low != part->low || told->high != part->high);
            }));
  };
  for (FieldDescription const* const field : fields) {
    if (isToldElsewhere(field)) continue;
    auto const same = [&](FieldDescription const* told) {
      return told->low == field->low && told->high == field->high;
    };
    if (std::ranges::none_of(distinct, same)) distinct.push_back(field);
  }
  return distinct;
}

Json fieldJson(FieldDescription const& field, std::span<std::uint8_t const> row) {
  Bits const bits = bitsIn(field, row);
  if (widthOf(field) <= kNumberBits) {
    std::uint64_t number = 0;
    for (std::size_t at = 0; at < bits.size(); ++at) number |= std::uint64_t{bits[at]} << at * 8;
    return number;
  }
  std::string text = "0x";
  for (auto byte = bits.rbegin(); byte != bits.rend(); ++byte) text += fmt::format("{:02x}", *byte);
  return text;
}

Json fieldsJson(TableDescription const& table, std::uint32_t view, std::span<std::uint8_t const> row) {
  Json fields = Json::object();
  for (FieldDescription const* const field : fieldsOf(table, view))
    fields[std::string(field->name)] = fieldJson(*field, row);
  return fields;
}

std::string fieldsText(TableDescription const& table, std::uint32_t view, std::span<std::uint8_t const> row) {
  std::string text;
  for (FieldDescription const* const field : distinctFieldsOf(table, view)) {
    Bits const bits = bitsIn(*field, row);
    if (std::ranges::all_of(bits, [](std::uint8_t byte) { return byte == 0; })) continue;
    Json const value = fieldJson(*field, row);
    text += fmt::format("{}{}:{}", text.empty() ? "" : " ", field->name,
                        value.is_string() ? value.get<std::string>() : value.dump());
  }
  return text;
}

}  // namespace Host
