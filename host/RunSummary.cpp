#include "host/RunSummary.h"

#include <fmt/format.h>

#include <array>
#include <map>

#include "host/FieldValues.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

using Figures = ControlPlane::Figures;

constexpr std::size_t kColumns = 11;
constexpr std::size_t kRefusalsTold = 10;
using Line = std::array<std::string, kColumns>;

// Three digits of it.
std::string shortNumber(double number) {
  return number < 10 ? fmt::format("{:.1f}", number) : fmt::format("{:.0f}", number);
}

using Refusal = LoamAsicUtils::TableWriter::Refusal;

std::string_view reasonOf(Sluice::SchanStatus status) {
  switch (status) {
    case Sluice::SchanStatus::bucketFull:
      return "bucket full";
    case Sluice::SchanStatus::badAddress:
      return "bad address";
    case Sluice::SchanStatus::badDatabase:
      return "bad database";
    default:
      return "no answer";
  }
}

// Calls visit(table, key, refusal) for all that the chips have last answered with an error, in the order of
// tables and keys.
template <class Visit>
void forEachRefusal(ControlPlane const& plane, Visit&& visit) {
  for (LiveTable const& live : plane.tables()) {
    for (auto const& [shadowKey, shadow] : live.table->hwShadowColl()) {
      std::map<std::vector<std::uint64_t>, Refusal> sorted;
      for (auto const& [key, refusal] : plane.writer().refusals(*shadow))
        sorted.emplace(live.access().keyMembers(key), refusal);
      for (auto const& [key, refusal] : sorted) visit(live, key, refusal);
    }
  }
}

std::string refusalText(LiveTable const& live, std::vector<std::uint64_t> const& key,
                        Refusal const& refusal) {
  std::string const what =
      fmt::format("{} {} by FAPs {}", live.name(), keyText(*live.description, key), refusal.fapmask);
  if (refusal.status == Sluice::SchanStatus::noResponse) return "unanswered: " + what;
  return fmt::format("refused: {}: {}", what, reasonOf(refusal.status));
}

Line lineOf(std::string_view name, Figures const& figures) {
  auto const& sent = figures.sent;
  return {std::string(name),
          std::to_string(figures.set),
          std::to_string(figures.deleted),
          std::to_string(sent.commands - sent.downloadCommands),
          std::to_string(sent.refused + sent.unanswered),
          std::to_string(sent.downloadCommands),
          bytesText(sent.downloadBytes),
          std::to_string(sent.flushPasses),
          std::to_string(sent.flushed + sent.staleDeleted),
          std::to_string(figures.verified),
          durationText(figures.time + sent.time)};
}

std::string joined(Line const& line, std::array<std::size_t, kColumns> const& widths) {
  std::string text = fmt::format("{:<{}}", line[0], widths[0]);
  for (std::size_t at = 1; at < kColumns; ++at) text += fmt::format("  {:>{}}", line[at], widths[at]);
  return text;
}

Json figuresJson(std::string_view name, Figures const& figures) {
  auto const& sent = figures.sent;
  return {{"table", name},
          {"set", figures.set},
          {"deleted", figures.deleted},
          {"commands", sent.commands},
          {"refused", sent.refused},
          {"unanswered", sent.unanswered},
          {"downloadCommands", sent.downloadCommands},
          {"downloadBytes", sent.downloadBytes},
          {"flushPasses", sent.flushPasses},
          {"removed", sent.flushed + sent.staleDeleted},
          {"verified", figures.verified},
          {"nanoseconds", (figures.time + sent.time).count()}};
}

}  // namespace

std::string durationText(std::chrono::nanoseconds time) {
  auto number = static_cast<double>(time.count());
  for (char const* const unit : {"ns", "us", "ms"}) {
    if (number < 999.5) return fmt::format("{} {}", shortNumber(number), unit);
    number /= 1000;
  }
  return fmt::format("{} s", shortNumber(number));
}

std::string bytesText(std::uint64_t bytes) {
  if (bytes < 1024) return fmt::format("{} B", bytes);
  auto number = static_cast<double>(bytes) / 1024;
  if (number < 999.5) return fmt::format("{} KiB", shortNumber(number));
  return fmt::format("{} MiB", shortNumber(number / 1024));
}

std::vector<std::string> summaryLines(ControlPlane const& plane, std::chrono::nanoseconds time) {
  std::vector<Line> lines{{"TABLE", "SET", "DELETED", "COMMANDS", "REFUSED", "DOWNLOADS", "DOWNLOADED",
                           "PASSES", "REMOVED", "VERIFIED", "TIME"}};
  Figures all;
  for (LiveTable const& live : plane.tables()) {
    Figures const figures = plane.figures(live);
    if (!figures.any()) continue;
    all += figures;
    lines.push_back(lineOf(live.name(), figures));
  }
  lines.push_back(lineOf("all", all));
  lines.back().back() = durationText(time);
  std::array<std::size_t, kColumns> widths{};
  for (Line const& line : lines)
    for (std::size_t at = 0; at < kColumns; ++at) widths[at] = std::max(widths[at], line[at].size());
  std::vector<std::string> texts;
  texts.reserve(lines.size());
  for (Line const& line : lines) texts.push_back(joined(line, widths));
  return texts;
}

std::vector<std::string> refusalLines(ControlPlane const& plane) {
  std::vector<std::string> lines;
  std::size_t more = 0;
  forEachRefusal(plane,
                 [&](LiveTable const& live, std::vector<std::uint64_t> const& key, Refusal const& refusal) {
                   if (lines.size() < kRefusalsTold) {
                     lines.push_back(refusalText(live, key, refusal));
                   } else {
                     ++more;
                   }
                 });
  if (more != 0) lines.push_back(fmt::format("and {} more, which --json tells", more));
  return lines;
}

Json summaryJson(ControlPlane const& plane, std::chrono::nanoseconds time) {
  Json summary{{"event", "summary"}, {"nanoseconds", time.count()}, {"tables", Json::array()}};
  for (LiveTable const& live : plane.tables()) {
    Figures const figures = plane.figures(live);
    if (figures.any()) summary["tables"].push_back(figuresJson(live.name(), figures));
  }
  Json& refusals = summary["refusals"] = Json::array();
  forEachRefusal(plane,
                 [&](LiveTable const& live, std::vector<std::uint64_t> const& key, Refusal const& refusal) {
                   Json faps = Json::array();
                   for (Sluice::FapId const fap : refusal.fapmask.fapIds()) faps.push_back(fap.value());
                   refusals.push_back({{"table", live.name()},
                                       {"key", keyJson(*live.description, key)},
                                       {"faps", faps},
                                       {"reason", reasonOf(refusal.status)}});
                 });
  return summary;
}

}  // namespace Host
