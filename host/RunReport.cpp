#include "host/RunReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/FieldValues.h"
#include "host/RunSummary.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

constexpr std::size_t kRowsTold = 10;

std::string plural(std::uint64_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

Json fapJson(Sluice::FapId fap) { return fap.isNull() ? Json("all") : Json(fap.value()); }

Json fapsJson(Sluice::Fapmask const& faps) {
  Json list = Json::array();
  for (Sluice::FapId const fap : faps.fapIds()) list.push_back(fap.value());
  return list;
}

std::string shadowText(LoamAsicUtils::HwShadowKey shadow) {
  return shadow.fapId().isNull() ? "" : fmt::format(" of FAP {}", shadow.fapId());
}

Json badRowJson(BadRow const& row) {
  auto const& table = *row.table->description;
  Json json{{"class", nameOf(row.state)}, {"fap", row.fap.value()},         {"table", table.name},
            {"memory", row.memory},       {"key", keyJson(table, row.key)}, {"wanted", Json::object()}};
  json["wanted"] = row.wanted.empty() ? Json(nullptr) : fieldsJson(table, row.view, row.wanted);
  json["found"] = row.found.empty() ? Json(nullptr) : fieldsJson(table, row.view, row.found);
  return json;
}

std::string valueText(Json const& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// The fields that aren't as they should be. Some may overlap.
std::string differences(BadRow const& row) {
  std::string text;
  if (row.wanted.empty()) return text;
  for (auto const* const field : distinctFieldsOf(*row.table->description, row.view)) {
    Json const wanted = fieldJson(*field, row.wanted);
    Json const found = row.found.empty() ? wanted : fieldJson(*field, row.found);
    if (wanted != found)
      text += fmt::format("{} {} is {}, not {}", text.empty() ? ":" : ";", field->name, valueText(found),
                          valueText(wanted));
  }
  if (text.empty() && !row.found.empty()) text = ": in bits that no field has";
  return text;
}

std::string badRowText(BadRow const& row) {
  std::string const key = row.key.empty() ? "" : " " + keyText(*row.table->description, row.key);
  return fmt::format("  {}: FAP {} {} {}{}{}", nameOf(row.state), row.fap, row.table->name(), row.memory, key,
                     differences(row));
}

Json countsJson(Verdict const& verdict) {
  Json counts = Json::object();
  for (std::size_t state = 0; state < kRowStates; ++state)
    counts[std::string(nameOf(static_cast<RowState>(state)))] = verdict.counts[state];
  return counts;
}

std::string countsText(Verdict const& verdict) {
  std::string text;
  for (std::size_t state = 0; state < kRowStates; ++state) {
    if (verdict.counts[state] == 0) continue;
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", verdict.counts[state],
                        nameOf(static_cast<RowState>(state)));
  }
  return text;
}

std::string sentText(Sluice::SendOutcome const& outcome) {
  std::string text = plural(outcome.commands, "command");
  if (outcome.refused != 0) text += fmt::format(", {} refused", outcome.refused);
  if (outcome.unanswered != 0) text += fmt::format(", {} unanswered", outcome.unanswered);
  return text;
}

std::string staleText(std::uint64_t count) {
  return count == 1 ? "1 stale entry" : plural(count, "stale entrie");
}

std::string reconciledText(std::vector<ControlPlane::Reconciliation> const& tables, std::string_view kind) {
  std::uint64_t removed = 0;
  for (auto const& one : tables) removed += one.removed;
  auto const done = std::ranges::count_if(tables, &ControlPlane::Reconciliation::done);
  std::string const failed = done == std::ssize(tables) ? "" : fmt::format(" of {}", tables.size());
  return fmt::format("{}{} {}{} reconciled, {} removed", done, failed, kind,
                     tables.size() == 1 ? " is" : "s are", staleText(removed));
}

}  // namespace

void RunReport::event(Json const& event, std::string const& text) {
  if (json_) {
    output_.line(event.dump(-1, ' ', false, Json::error_handler_t::replace));
  } else if (!text.empty()) {
    output_.line(text);
  }
}

// Written at once: the store is about to be emptied.
void RunReport::formerStore(FormerStore const& former) {
  std::string const store =
      fmt::format("  {}{}: the store of an earlier run", former.table, shadowText(former.shadow));
  Json told{{"event", "former-store"}, {"table", former.table}, {"fap", fapJson(former.shadow.fapId())}};
  if (former.wipedBecause.empty()) {
    told["entries"] = former.entries;
    event(told, fmt::format("{} held {}; it starts empty", store,
                            former.entries == 1 ? "1 entry" : plural(former.entries, "entrie")));
  } else {
    told["wiped"] = former.wipedBecause;
    event(told, fmt::format("{} is wiped: {}", store, oneLine(former.wipedBecause)));
  }
  finish();
}

void RunReport::started(ControlPlane::Start const& start) {
  std::string text = fmt::format("FAP {} is up: ", start.fap);
  text += start.warm ? "the chip was in use and keeps its rows until sync-done"
                     : "the chip was blank, all tables are downloaded";
  if (!start.reconciled.empty()) {
    text += ", but for the shared tables: direct ones are downloaded, " +
            reconciledText(start.reconciled, "exact-match table");
  }
  event({{"event", "fap-add"},
         {"fap", start.fap.value()},
         {"start", start.warm ? "warm" : "cold"},
         {"downloaded", start.downloaded}},
        text);
  eachReconciled(start.reconciled);
}

void RunReport::resetItself(Sluice::FapId fap) {
  event({{"event", "reset-itself"}, {"fap", fap.value()}},
        fmt::format("FAP {} has reset itself and is blank: download is up to you", fap));
}

void RunReport::entry(LiveTable const& table, LoamAsicUtils::HwShadowKey shadow,
                      std::vector<std::uint64_t> const& key, LoamAsicUtils::RowImage const& row,
                      bool stored) {
  auto const& described = *table.description;
  Json told{{"event", "get"}, {"table", described.name}, {"fap", fapJson(shadow.fapId())}};
  told["key"] = keyJson(described, key);
  told["stored"] = stored;
  std::string_view const view = viewName(described, row.view);
  if (!view.empty()) told["view"] = view;
  told["fields"] = fieldsJson(described, row.view, row.data);
  // Of exact-match tables a chip holds what was stored and nothing else.
  std::string_view const instead = table.isExactMatch() ? ", not stored" : ", the default";
  event(told, fmt::format("{}{} {}{}: {}", described.name, shadowText(shadow), keyText(described, key),
                          stored ? "" : instead, fieldsText(described, row.view, row.data)));
}

void RunReport::verdict(Verdict const& verdict, Sluice::Fapmask const& faps) {
  std::string const counts = countsText(verdict);
  std::string text = fmt::format("verify: {}: {} of FAPs {} compared",
                                 verdict.clean() ? "clean" : "NOT CLEAN", plural(verdict.rows, "row"), faps);
  if (!counts.empty()) text += fmt::format(", {}", counts);
  Json told{{"event", "verify"},
            {"clean", verdict.clean()},
            {"faps", fapsJson(faps)},
            {"rows", verdict.rows},
            {"counts", countsJson(verdict)}};
  Json& bad = told["bad"] = Json::array();
  if (json_) {
    for (BadRow const& row : verdict.bad) bad.push_back(badRowJson(row));
  } else {
    for (std::size_t at = 0; at < std::min(verdict.bad.size(), kRowsTold); ++at)
      text += "\n" + badRowText(verdict.bad[at]);
    if (verdict.bad.size() > kRowsTold)
      text += fmt::format("\n  and {} more, which --json tells", verdict.bad.size() - kRowsTold);
  }
  event(told, text);
}

void RunReport::sent(std::string_view operation, Sluice::SendOutcome const& outcome) {
  event({{"event", operation},
         {"commands", outcome.commands},
         {"refused", outcome.refused},
         {"unanswered", outcome.unanswered},
         {"bytes", outcome.bulkBytes}},
        fmt::format("{}: {}", operation, sentText(outcome)));
}

void RunReport::syncDone(std::vector<ControlPlane::Reconciliation> const& tables) {
  event({{"event", "sync-done"}},
        "sync-done: direct tables are downloaded, " + reconciledText(tables, "exact-match table"));
  eachReconciled(tables);
}

void RunReport::reconciled(std::vector<ControlPlane::Reconciliation> const& tables) {
  if (!json_) output_.line("reconcile: " + reconciledText(tables, "table"));
  eachReconciled(tables);
}

void RunReport::eachReconciled(std::vector<ControlPlane::Reconciliation> const& tables) {
  for (auto const& one : tables) {
    std::string text;
    if (!one.done) {
      text =
          fmt::format("  {}: the reconciliation FAILED ({}): stale entries may be left, and good ones marked",
                      one.table->name(), sentText(one.sent));
    } else if (one.removed != 0) {
      text = fmt::format("  {}: {} removed", one.table->name(), staleText(one.removed));
    }
    event({{"event", "reconcile"},
           {"table", one.table->name()},
           {"done", one.done},
           {"removed", one.removed},
           {"passes", one.sent.flushPasses},
           {"commands", one.sent.commands},
           {"refused", one.sent.refused},
           {"unanswered", one.sent.unanswered}},
          text);
  }
}

void RunReport::refused(std::string const& where, std::string_view why) {
  finish();
  fmt::print(stderr, "hwtables: {}: {}\n", where, oneLine(why));
}

void RunReport::summary(ControlPlane const& plane, std::chrono::nanoseconds time) {
  if (json_) {
    event(summaryJson(plane, time), "");
  } else {
    for (std::string const& line : summaryLines(plane, time)) output_.line(line);
    for (std::string const& line : refusalLines(plane)) output_.line(line);
  }
  finish();
}

}  // namespace Host
