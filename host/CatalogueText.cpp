#include "host/CatalogueText.h"

#include <fmt/format.h>

#include "host/BitRuler.h"

namespace Host {
namespace {

using LoamAsicUtils::FieldDescription;
using LoamAsicUtils::TableDescription;

std::string keySummary(TableDescription const& table) {
  std::string text;
  for (auto const& member : table.key) {
    text += text.empty() ? "" : ", ";
    bool const bounded =
        member.type.ends_with("-bit") && table.family != LoamAsicUtils::TableFamily::exactMatch;
    text += bounded ? fmt::format("{} {}..{}", member.name, member.min, member.max)
                    : fmt::format("{} {}", member.name, member.type);
  }
  return text;
}

std::string cut(std::string line, unsigned columns) {
  if (columns != 0 && line.size() > columns) line = line.substr(0, columns - 3) + "...";
  return line;
}

void addNames(std::vector<std::string>& lines, TableDescription const& table) {
  lines.push_back(fmt::format("{} ({})", table.typeName, stringValue(table.family)));
  lines.push_back(fmt::format("  chip name   {}", table.chipName));
  if (table.mdbTableId) lines.push_back(fmt::format("  MDB table   {}", *table.mdbTableId));
  if (table.tag != "noTag") lines.push_back(fmt::format("  tag         {}", table.tag));
  lines.push_back(fmt::format("  row         {} bytes, {} bits{}", table.entryDataMaxSize,
                              table.entryDataMaxSizeBits(), table.hasParitySupport ? ", with parity" : ""));
  for (auto const& member : table.key) {
    lines.push_back(fmt::format("  {:<11} {:<22} {:<7} {}..{}{}", &member == &table.key.front() ? "key" : "",
                                member.name, member.type, member.min, member.max,
                                member.name == "value" ? fmt::format(", {} names no row", member.max) : ""));
  }
}

std::string arraysText(LoamAsicUtils::MemoryDescription const& memory) {
  if (memory.arrayCount == 1) return fmt::format("array {}", memory.firstArray);
  return fmt::format("each of arrays {}..{}", memory.firstArray, memory.firstArray + memory.arrayCount - 1);
}

void addMemories(std::vector<std::string>& lines, TableDescription const& table) {
  for (auto const& memory : table.memories) {
    std::string line = fmt::format("  memory {:<4} {} in block {} at {:#x}", memory.id, memory.name,
                                   memory.block, memory.address);
    if (memory.physicalTableId) line += fmt::format(", physical table {}", *memory.physicalTableId);
    lines.push_back(std::move(line));
    lines.push_back(fmt::format("  {:<11} rows {}..{} of {}", "", memory.firstEntry,
                                memory.firstEntry + memory.entryCount - 1, arraysText(memory)));
  }
}

void addPresets(std::vector<std::string>& lines, TableDescription const& table) {
  if (table.presets.empty()) return;
  std::string line = "  presets    ";
  for (auto const& preset : table.presets) line += fmt::format(" {} {}", preset.field, preset.value);
  lines.push_back(std::move(line));
}

// The fields of one view, or of the entry itself: the list, then the ruler with their numbers.
void addFields(std::vector<std::string>& lines, TableDescription const& table,
               std::span<FieldDescription const> fields) {
  std::string_view const view = fields.front().view;
  lines.emplace_back();
  lines.push_back(view.empty() ? "  fields" : fmt::format("  fields of view {}", view));
  std::vector<RulerField> ruler;
  for (auto const& field : fields) {
    auto const number = static_cast<unsigned>(ruler.size() + 1);
    ruler.push_back({number, field.name, field.low, field.high});
    lines.push_back(fmt::format("    {:>2}  {:<42} {:<7} [{}..{}]", number, field.name, field.type, field.low,
                                field.high));
  }
  lines.emplace_back();
  for (std::string& line : bitRuler(ruler, table.entryDataMaxSizeBits())) lines.push_back(std::move(line));
}

}  // namespace

std::vector<std::string> catalogueLines(std::vector<TableDescription const*> const& tables,
                                        unsigned columns) {
  static constexpr char kLine[] = "{:<35} {:<10} {:>5}  {:<45} {}";
  std::vector<std::string> lines{
      cut(fmt::format(kLine, "TABLE", "FAMILY", "BYTES", "KEY", "CHIP NAME"), columns)};
  for (auto const* const table : tables) {
    lines.push_back(cut(fmt::format(kLine, table->name, stringValue(table->family), table->entryDataMaxSize,
                                    keySummary(*table), table->chipName),
                        columns));
  }
  return lines;
}

std::vector<std::string> tableLines(TableDescription const& table) {
  std::vector<std::string> lines;
  addNames(lines, table);
  addMemories(lines, table);
  addPresets(lines, table);
  for (std::size_t first = 0, next = 0; first < table.fields.size(); first = next) {
    while (next < table.fields.size() && table.fields[next].view == table.fields[first].view) ++next;
    addFields(lines, table, table.fields.subspan(first, next - first));
  }
  return lines;
}

}  // namespace Host
