#include "host/StoreDump.h"

#include <fmt/format.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Host {
namespace {

using Vault::SlotLink;
using Vault::SlotsImage;
using Vault::StoredType;
using Vault::StoreFiles;

void appendHex(std::string& text, std::byte const* bytes, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < count; ++i) {
    auto const byte = std::to_integer<unsigned>(bytes[i]);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xf];
  }
}

std::string nextText(SlotLink link) {
  if (link.isNil()) return "nil";
  if (link.leadsToSlot()) return fmt::format("slot {}", link.id());
  return fmt::format("bucket {}", link.id());
}

// Fields that aren't 0.
class TextFields final : public Vault::FieldSink {
 public:
  explicit TextFields(std::string& text) : text_(text) {}
  void number(std::string_view name, std::uint64_t value) override {
    if (value != 0) fmt::format_to(std::back_inserter(text_), " {}:{}", name, value);
  }
  void bits(std::string_view name, std::string_view hex) override {
    if (hex.find_first_not_of("0x") != hex.npos) text_.append(" ").append(name).append(":").append(hex);
  }

 private:
  std::string& text_;
};

class JsonFields final : public Vault::FieldSink {
 public:
  explicit JsonFields(std::string& text) : text_(text) {}
  void number(std::string_view name, std::uint64_t value) override {
    fmt::format_to(std::back_inserter(text_), "{}\"{}\":{}", separator(), name, value);
  }
  void bits(std::string_view name, std::string_view hex) override {
    fmt::format_to(std::back_inserter(text_), "{}\"{}\":\"{}\"", separator(), name, hex);
  }

 private:
  char const* separator() {
    char const* const before = first_ ? "" : ",";
    first_ = false;
    return before;
  }

  std::string& text_;
  bool first_ = true;
};

// A text from a file may be of any bytes.
std::string quoted(std::string_view text) {
  using Json = nlohmann::json;
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

void appendSlot(std::string& text, SlotsImage const& slots, std::uint32_t id, StoredType const* type) {
  static constexpr std::size_t kRow = 32;
  SlotLink const link = slots.link(id);
  auto const out = std::back_inserter(text);
  fmt::format_to(out, "slot {}  {}{}  sequence {:#x}  next {}{}  hash {:#010x}\n", id,
                 link.occupied() ? "occupied" : "free", link.inLookaside() ? ", changing" : "", link.sequence,
                 nextText(link), link.flag() ? "  flag" : "", slots.hash(id));
  for (std::size_t at = 0; at < slots.slotSize(); at += kRow) {
    fmt::format_to(out, "  {:08x}  ", slots.offset(id) + at);
    appendHex(text, slots.bytes(id) + at, std::min<std::size_t>(kRow, slots.slotSize() - at));
    text += '\n';
  }
  if (type != nullptr && link.occupied()) {
    text.append("  ").append(type->keyText(slots.value(id)));
    TextFields fields(text);
    type->fields(slots.value(id), fields);
    text += '\n';
  }
}

void appendJsonSlot(std::string& text, SlotsImage const& slots, std::uint32_t id, StoredType const* type) {
  SlotLink const link = slots.link(id);
  auto const out = std::back_inserter(text);
  fmt::format_to(out, R"({{"id":{},"occupied":{},"changing":{},"sequence":{},"next":)", id, link.occupied(),
                 link.inLookaside(), link.sequence);
  if (link.isNil()) {
    text += "null";
  } else {
    fmt::format_to(out, R"({{"{}":{}}})", link.leadsToSlot() ? "slot" : "bucket", link.id());
  }
  fmt::format_to(out, R"(,"flag":{},"hash":{},"bytes":")", link.flag(), slots.hash(id));
  appendHex(text, slots.bytes(id), slots.slotSize());
  text += '"';
  if (type != nullptr && link.occupied()) {
    fmt::format_to(out, R"(,"key":{},"fields":{{)", quoted(type->keyText(slots.value(id))));
    JsonFields fields(text);
    type->fields(slots.value(id), fields);
    text += '}';
  }
  text += '}';
}

}  // namespace

void dumpText(StoreFiles const& store, SlotRange range, StoredType const* type, Output& output) {
  std::string text;
  for (std::uint32_t id = range.first; id < range.end; ++id) {
    text.clear();
    appendSlot(text, store.slots(), id, type);
    text.pop_back();
    output.line(text);
  }
}

void dumpJson(StoreFiles const& store, SlotRange range, StoredType const* type, Output& output) {
  SlotsImage const& slots = store.slots();
  output.line(fmt::format(
      R"({{"path":{},"type":{},"valueSize":{},"slotSize":{},"generation":{},"hashSeed":{},"numSlots":{},)"
      R"("live":{},"slots":[)",
      quoted(store.rootPath().dirName()), quoted(slots.typeName()), slots.valueSize(), slots.slotSize(),
      slots.generation().value(), slots.hashSeed(), slots.numSlots().count, store.isLocked()));
  std::string text;
  for (std::uint32_t id = range.first; id < range.end; ++id) {
    text.clear();
    appendJsonSlot(text, slots, id, type);
    if (id + 1 < range.end) text += ',';
    output.line(text);
  }
  output.line("]}");
}

}  // namespace Host
