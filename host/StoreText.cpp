#include "host/StoreText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "Vault/StoreFigures.h"
#include "host/Output.h"
#include "host/UtcTime.h"

namespace Host {
namespace {

using Vault::BucketsImage;
using Vault::SlotsImage;
using Vault::StoreFigures;
using Vault::StoreFiles;

constexpr std::size_t kColumns = 8;
using Row = std::array<std::string, kColumns>;

std::string typeText(SlotsImage const& slots) {
  if (!slots.file().problem().empty()) return slots.file().exists() ? "unreadable" : "no slots";
  if (slots.magic() != Vault::SlotTable::kMagic) return "no slot file";
  return oneLine(slots.typeName());
}

std::string marksText(StoreFiles const& store) {
  std::string marks;
  auto const add = [&marks](bool is, char const* mark) {
    if (is) marks += fmt::format("{}{}", marks.empty() ? "" : ", ", mark);
  };
  add(store.isMarkedCorrupt(), "corrupt");
  add(store.owner().wiped, "wiped");
  add((store.slots().runtimeFlags() & Vault::SlotTable::kInCriticalSection) != 0 && !store.isLocked(),
      "interrupted");
  add(!store.hasControlFile(), "incomplete");
  return marks;
}

Row listRow(std::string_view root, StoreFiles const& store) {
  std::string_view path = store.rootPath().dirName();
  if (path.starts_with(root) && path.substr(root.size()).starts_with('/'))
    path.remove_prefix(root.size() + 1);
  SlotsImage const& slots = store.slots();
  return {oneLine(path),
          typeText(slots),
          fmt::to_string(slots.occupiedSlots()),
          fmt::to_string(slots.numSlots().count),
          fmt::to_string(store.buckets().numBuckets().count),
          fmt::to_string(store.generation()),
          writerText(store),
          marksText(store)};
}

// A number in hundredths without a sign, as "12.34".
std::string ratio(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? "0.00" : fmt::format("{:.2f}", static_cast<double>(part) / static_cast<double>(whole));
}

std::string changing(bool is) { return is ? " (changing)" : ""; }

std::string times(std::uint32_t count) { return count == 1 ? "once" : fmt::format("{} times", count); }

std::string generationText(StoreFiles const& store) {
  if (store.generation() == SharedMem::EmberId()) return "none";
  return fmt::format("{}, written {}", store.generation(), utcTime(store.generationTime()));
}

std::string writerLine(StoreFiles const& store) {
  if (store.isLocked()) return writerText(store) + ", at work";
  if (store.owner().pid == 0) return "none";
  return fmt::format("none; the last was pid {}", store.owner().pid);
}

std::string chainsText(StoreFigures const& figures) {
  std::string text;
  for (std::size_t length = 0; length < figures.chains.size(); ++length) {
    if (figures.chains[length] == 0) continue;
    bool const orMore = length + 1 == figures.chains.size();
    text += fmt::format("{}{}{}: {}", text.empty() ? "" : "  ", length, orMore ? "+" : "",
                        figures.chains[length]);
  }
  return text + fmt::format("  (slots in a bucket: buckets; the longest has {})", figures.longestChain);
}

void addSummary(std::vector<std::string>& lines, StoreFiles const& store) {
  auto const add = [&lines](char const* name, std::string const& text) {
    lines.push_back(fmt::format("  {:<12} {}", name, text));
  };
  SlotsImage const& slots = store.slots();
  BucketsImage const& buckets = store.buckets();
  StoreFigures const figures = StoreFigures::of(slots, buckets);
  std::uint32_t const numSlots = slots.numSlots().count;
  add("type", typeText(slots));
  add("generation", generationText(store));
  add("writer", writerLine(store));
  if (std::string const marks = marksText(store); !marks.empty()) add("marks", marks);
  if (!store.ownerProblem().empty()) add("owner", oneLine(store.ownerProblem()));
  add("records", fmt::format("{} in {} slots{}, {} full", slots.occupiedSlots(), numSlots,
                             changing(store.numSlotsChanged()), ratio(slots.occupiedSlots(), numSlots)));
  add("buckets", fmt::format("{}{}, {} records a bucket", buckets.numBuckets().count,
                             changing(store.numBucketsChanged()),
                             ratio(slots.occupiedSlots(), buckets.numBuckets().count)));
  add("chains", chainsText(figures));
  add("free list", fmt::format("{} slots", figures.freeSlots));
  if (!figures.complete) add("", "some chains or the free list lead nowhere");
  add("growth", fmt::format("slots changed {}, most ever {}; buckets changed {}; records at most {}",
                            times(slots.numSlots().version), slots.peakNumSlots(),
                            times(buckets.numBuckets().version), slots.largestOccupied()));
}

// A file's headline, and a line for each field of its header.
class HeaderLines {
 public:
  HeaderLines(std::vector<std::string>& lines, char const* name, Vault::FileImage const& file)
      : lines_(lines) {
    lines_.emplace_back();
    lines_.push_back(
        fmt::format("{}: {}", name,
                    file.problem().empty() ? fmt::format("{} bytes", file.size()) : oneLine(file.problem())));
  }
  template <class Value>
  HeaderLines& add(unsigned offset, char const* name, Value const& value) {
    lines_.push_back(fmt::format("  {:>4}  {:<19} {}", offset, name, value));
    return *this;
  }

 private:
  std::vector<std::string>& lines_;
};

std::string hex(std::uint32_t value) { return fmt::format("{:#010x}", value); }

void addSlotsHeader(std::vector<std::string>& lines, StoreFiles const& store) {
  SlotsImage const& slots = store.slots();
  HeaderLines header(lines, "slots", slots.file());
  if (!slots.file().problem().empty()) return;
  header.add(0, "magic", hex(slots.magic()))
      .add(4, "header size", slots.headerSize())
      .add(6, "format version", slots.formatVersion())
      .add(8, "value size", slots.valueSize())
      .add(12, "slot size", slots.slotSize())
      .add(16, "generation", slots.generation())
      .add(20, "capacity", slots.capacity())
      .add(24, "maximum size", slots.maximumSize())
      .add(28, "marshalled size", slots.marshalledSize())
      .add(32, "flags", hex(slots.flags()))
      .add(36, "type name", oneLine(slots.typeName()))
      .add(558, "runtime flags", fmt::format("{:#06x}", slots.runtimeFlags()))
      .add(564, "occupied slots", slots.occupiedSlots())
      .add(568, "free list",
           slots.freeList() == Vault::SlotLink::kNil ? "nil" : fmt::to_string(slots.freeList()))
      .add(572, "peak slots", slots.peakNumSlots())
      .add(576, "hash seed", hex(slots.hashSeed()))
      .add(580, "sequence watermark", slots.watermark())
      .add(584, "slots version", slots.numSlots().version)
      .add(588, "slots", fmt::format("{}{}", slots.numSlots().count, changing(store.numSlotsChanged())))
      .add(592, "largest occupied", slots.largestOccupied())
      .add(600, "scratchpad", fmt::format("{:#018x}", slots.scratchpad()));
}

void addBucketsHeader(std::vector<std::string>& lines, StoreFiles const& store) {
  BucketsImage const& buckets = store.buckets();
  HeaderLines header(lines, "buckets", buckets.file());
  if (!buckets.file().problem().empty()) return;
  header.add(0, "magic", hex(buckets.magic()))
      .add(4, "element size", buckets.elementSize())
      .add(8, "generation", buckets.generation())
      .add(16, "buckets version", buckets.numBuckets().version)
      .add(20, "buckets",
           fmt::format("{}{}", buckets.numBuckets().count, changing(store.numBucketsChanged())));
}

void addOwner(std::vector<std::string>& lines, StoreFiles const& store) {
  lines.emplace_back();
  if (!store.owner().known) {
    lines.push_back(store.ownerProblem().empty() ? "owner: none" : "owner: not usable");
    return;
  }
  Vault::StoreOwner const& owner = store.owner();
  lines.emplace_back("owner:");
  auto const add = [&lines](char const* name, auto const& value) {
    lines.push_back(fmt::format("        {:<19} {}", name, value));
  };
  add("pid", owner.pid);
  add("start time", owner.startTime);
  add("boot id", oneLine(owner.bootId));
  add("wiped", owner.wiped ? "yes" : "no");
  add("shared-memory type", owner.sharedMemType);
  add("type name", oneLine(owner.typeName));
  add("socket name", owner.socketName.empty() ? "none" : oneLine(owner.socketName));
}

}  // namespace

std::string writerText(StoreFiles const& store) {
  if (!store.isLocked()) return "free";
  return store.owner().pid == 0 ? "held" : fmt::format("pid {}", store.owner().pid);
}

std::vector<std::string> storeListLines(std::string_view root, std::vector<StoreFiles> const& stores) {
  std::vector<Row> rows{{"PATH", "TYPE", "RECORDS", "SLOTS", "BUCKETS", "GENERATION", "WRITER", "MARKS"}};
  for (StoreFiles const& store : stores) rows.push_back(listRow(root, store));
  std::array<std::size_t, kColumns> widths{};
  for (Row const& row : rows) {
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::vector<std::string> lines;
  for (Row const& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < kColumns; ++i) {
      bool const isNumber = i >= 2 && i <= 4;
      line +=
          isNumber ? fmt::format("{:>{}}  ", row[i], widths[i]) : fmt::format("{:<{}}  ", row[i], widths[i]);
    }
    lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
  }
  return lines;
}

std::vector<std::string> storeLines(StoreFiles const& store) {
  std::vector<std::string> lines{oneLine(store.rootPath().dirName())};
  addSummary(lines, store);
  addSlotsHeader(lines, store);
  addBucketsHeader(lines, store);
  lines.emplace_back();
  lines.push_back(fmt::format("ember: {}", generationText(store)));
  addOwner(lines, store);
  return lines;
}

}  // namespace Host
