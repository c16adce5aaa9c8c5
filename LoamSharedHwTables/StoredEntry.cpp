#include "LoamSharedHwTables/StoredEntry.h"

#include <fmt/format.h>

#include "LoamSharedHwTables/EntryRecord.h"
#include "runtime/Detail/CopyBits.h"

namespace LoamSharedHwTables::Impl {
namespace {

using LoamAsicUtils::FieldDescription;

void putField(FieldDescription const& field, std::span<std::uint8_t const> row, Vault::FieldSink& sink) {
  unsigned const width = field.high - field.low + 1;
  if (width <= 64) {
    std::uint64_t value = 0;
    Detail::copyBits(&value, sizeof value, row.data(), row.size(), width, 0, field.low);
    sink.number(field.name, value);
    return;
  }
  sink.bits(field.name, bitmapFromBits(row.data(), row.size(), field.low, width).toString());
}

}  // namespace

void storedFields(LoamAsicUtils::TableDescription const& table, std::span<std::uint8_t const> row,
                  std::uint32_t view, Vault::FieldSink& sink) {
  // A view's number is its place among the views, whose fields stand together.
  std::uint32_t number = 0;
  std::string_view current = table.fields.front().view;
  for (FieldDescription const& field : table.fields) {
    if (field.view != current) {
      current = field.view;
      ++number;
    }
    if (current.empty() || number == view) putField(field, row, sink);
  }
}

Dovel::String keyText(std::string_view text, std::string_view typeName) {
  // A bare number is the whole of a key with one member.
  bool const isWhole = text.find('(') != std::string_view::npos || text.find(':') == std::string_view::npos;
  return isWhole ? std::string(text) : fmt::format("{}({})", typeName, text);
}

}  // namespace LoamSharedHwTables::Impl
