#include "host/StoreDump.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Host {
namespace {

using Vault::SlotLink;
using Vault::SlotsImage;
using Vault::StoredType;
using Vault::StoreFiles;
using Text = fmt::memory_buffer;

void appendHex(Text& text, std::byte const* bytes, std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < count; ++i) {
    auto const byte = std::to_integer<unsigned>(bytes[i]);
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0xf]);
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
  explicit TextFields(Text& text) : text_(text) {}
  void number(std::string_view name, std::uint64_t value) override {
    if (value != 0) fmt::format_to(fmt::appender(text_), " {}:{}", name, value);
  }
  void bits(std::string_view name, std::string_view hex) override {
    if (hex.find_first_not_of("0x") != std::string_view::npos)
      fmt::format_to(fmt::appender(text_), " {}:{}", name, hex);
  }

 private:
  Text& text_;
};

class JsonFields final : public Vault::FieldSink {
 public:
  explicit JsonFields(Text& text) : text_(text) {}
  void number(std::string_view name, std::uint64_t value) override {
    fmt::format_to(fmt::appender(text_), "{}\"{}\":{}", separator(), name, value);
  }
  void bits(std::string_view name, std::string_view hex) override {
    fmt::format_to(fmt::appender(text_), "{}\"{}\":\"{}\"", separator(), name, hex);
  }

 private:
  char const* separator() {
    char const* const before = first_ ? "" : ",";
    first_ = false;
    return before;
  }

  Text& text_;
  bool first_ = true;
};

// A text from a file may be of any bytes.
std::string quoted(std::string_view text) {
  using Json = nlohmann::json;
  return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

void appendJsonRecord(Text& text, std::byte const* value, StoredType const& type) {
  fmt::format_to(fmt::appender(text), R"("key":{},"fields":{{)", quoted(type.keyText(value)));
  JsonFields fields(text);
  type.fields(value, fields);
  text.push_back('}');
}

void appendSlot(Text& text, SlotsImage const& slots, std::uint32_t id, StoredType const* type) {
  static constexpr std::size_t kRow = 32;
  SlotLink const link = slots.link(id);
  auto const out = fmt::appender(text);
  fmt::format_to(out, "slot {}  {}{}  sequence {:#x}  next {}{}  hash {:#010x}\n", id,
                 link.occupied() ? "occupied" : "free", link.inLookaside() ? ", changing" : "", link.sequence,
                 nextText(link), link.flag() ? "  flag" : "", slots.hash(id));
  for (std::size_t at = 0; at < slots.slotSize(); at += kRow) {
    fmt::format_to(out, "  {:08x}  ", slots.offset(id) + at);
    appendHex(text, slots.bytes(id) + at, std::min<std::size_t>(kRow, slots.slotSize() - at));
    text.push_back('\n');
  }
  if (type != nullptr && link.occupied())
    fmt::format_to(out, "  {}\n", recordText(slots.value(id), *type, false));
}

void appendJsonSlot(Text& text, SlotsImage const& slots, std::uint32_t id, StoredType const* type) {
  SlotLink const link = slots.link(id);
  auto const out = fmt::appender(text);
  fmt::format_to(out, R"({{"id":{},"occupied":{},"changing":{},"sequence":{},"next":)", id, link.occupied(),
                 link.inLookaside(), link.sequence);
  if (link.isNil()) {
    fmt::format_to(out, "null");
  } else {
    fmt::format_to(out, R"({{"{}":{}}})", link.leadsToSlot() ? "slot" : "bucket", link.id());
  }
  fmt::format_to(out, R"(,"flag":{},"hash":{},"bytes":")", link.flag(), slots.hash(id));
  appendHex(text, slots.bytes(id), slots.slotSize());
  text.push_back('"');
  if (type != nullptr && link.occupied()) {
    text.push_back(',');
    appendJsonRecord(text, slots.value(id), *type);
  }
  text.push_back('}');
}

}  // namespace

std::string recordText(std::byte const* value, StoredType const& type, bool json) {
  Text text;
  if (json) {
    text.push_back('{');
    appendJsonRecord(text, value, type);
    text.push_back('}');
  } else {
    fmt::format_to(fmt::appender(text), "{}", type.keyText(value));
    TextFields fields(text);
    type.fields(value, fields);
  }
  return fmt::to_string(text);
}

void dumpText(StoreFiles const& store, SlotRange range, StoredType const* type, Output& output) {
  Text text;
  for (std::uint32_t id = range.first; id < range.end; ++id) {
    text.clear();
    appendSlot(text, store.slots(), id, type);
    output.line({text.data(), text.size() - 1});
  }
}

void dumpJson(StoreFiles const& store, SlotRange range, StoredType const* type, Output& output) {
  SlotsImage const& slots = store.slots();
  output.line(fmt::format(
      R"({{"path":{},"type":{},"valueSize":{},"slotSize":{},"generation":{},"hashSeed":{},"numSlots":{},)"
      R"("live":{},"slots":[)",
      quoted(store.rootPath().dirName()), quoted(slots.typeName()), slots.valueSize(), slots.slotSize(),
      slots.generation().value(), slots.hashSeed(), slots.numSlots().count, store.isLocked()));
  Text text;
  for (std::uint32_t id = range.first; id < range.end; ++id) {
    text.clear();
    appendJsonSlot(text, slots, id, type);
    if (id + 1 < range.end) text.push_back(',');
    output.line({text.data(), text.size()});
  }
  output.line("]}");
}

}  // namespace Host
