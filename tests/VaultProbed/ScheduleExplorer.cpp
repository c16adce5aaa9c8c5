#include "tests/VaultProbed/ScheduleExplorer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "Vault/SlotTable.h"
#include "tests/support/Seed.h"

namespace ScheduleTests {
namespace {

using CrashTests::ProbeScope;

std::size_t placeOf(std::vector<Key> const& keys, Key const& key) {
  return static_cast<std::size_t>(std::find(keys.begin(), keys.end(), key) - keys.begin());
}

void apply(Operation const& operation, std::vector<Key> const& keys, Contents& contents) {
  std::size_t const place = placeOf(keys, operation.key);
  switch (operation.kind) {
    case Operation::write:
    case Operation::direct:
      contents.at(place) = operation.version;
      break;
    case Operation::remove:
      contents.at(place) = 0;
      break;
    default:
      break;
  }
}

std::vector<Contents> modelsOf(Scenario const& scenario) {
  Contents contents(scenario.keys.size());
  for (Operation const& operation : scenario.before) apply(operation, scenario.keys, contents);
  std::vector<Contents> models{contents};
  bool died = scenario.writerDied;
  for (Operation const& operation : scenario.meanwhile) {
    apply(operation, scenario.keys, contents);
    if (operation.kind == Operation::cleanup || (operation.kind == Operation::attach && died)) {
      contents.assign(contents.size(), 0);
      died = false;
    }
    models.push_back(contents);
  }
  return models;
}

Recording recordingOf(Scenario const& scenario, std::string const& directory, Fault const& fault) {
  std::filesystem::create_directories(directory);
  auto const writer = writerOf(scenario.table, directory);
  for (Operation const& operation : scenario.before) writer->apply(operation);
  if (scenario.writerDied) writer->die();
  Recorder recorder(directory);
  for (Operation const& operation : scenario.meanwhile) recorder.operation([&] { writer->apply(operation); });
  Recording recording = recorder.finish();
  if (fault) fault(recording);
  return recording;
}

// Files that go to a disk would make all of this slow.
std::string parentDirectory() {
  char const* const given = std::getenv("TMPDIR");
  return given != nullptr ? given : "/dev/shm";
}

}  // namespace

std::string Program::text() const {
  static constexpr char const* kTexts[] = {"lookup of key", "walk", "value of slot",
                                           "newcomer's lookup of key"};
  return kind == walk ? kTexts[kind] : fmt::format("{} {}", kTexts[kind], key);
}

Explorer::Explorer(Scenario const& scenario, Fault const& fault, Hoist hoist)
    : scenario_(scenario),
      directory_(parentDirectory()),
      timeline_(recordingOf(scenario, directory_.path() + "/made", fault)),
      stage_(directory_.path(), timeline_),
      probe_(stage_, slotCellsOf(scenario.table.records), hoist),
      judge_(scenario.keys, modelsOf(scenario)) {
  for (Timeline::Position position : {0U, timeline_.last()}) {
    std::uint64_t const count = timeline_.wordAt(position, 0, Vault::SlotTable::kNumSlotsWord) >> 32;
    slotCount_ = std::max(slotCount_, static_cast<std::uint32_t>(std::min<std::uint64_t>(count, 16)));
  }
  takeMoments();
}

std::vector<Program> Explorer::programs() const {
  std::vector<Program> all{{Program::walk}};
  auto const models = modelsOf(scenario_);
  unsigned absent = 0;
  for (std::size_t key = 0; key < scenario_.keys.size(); ++key) {
    auto const isThere = [&](Contents const& contents) { return contents[key] != 0; };
    // Of those that are never there, some will do.
    if (std::none_of(models.begin(), models.end(), isThere) && absent++ >= 3) continue;
    all.push_back({Program::lookup, key});
    all.push_back({Program::comeAnew, key});
  }
  for (std::size_t slot = 0; slot < slotCount_; ++slot) all.push_back({Program::slot, slot});
  return all;
}

void Explorer::attach(Reader& reader) {
  reader.party.reset();
  reader.mappings = {};
  reader.party = readerOf(scenario_.table.records, stage_.directory());
  probe_.mappingsAre(reader.mappings);
  probe_.restAt(0);
  ProbeScope const watching(&probe_);
  if (!reader.party->initialize()) throw std::runtime_error("the reader can't attach");
  reader.party->first();  // maps slots and buckets
  reader.resizes = reader.party->resizes();
}

bool Explorer::isAsNew(Reader const& reader) const {
  return reader.party != nullptr && !reader.party->told() && reader.party->resizes() == reader.resizes;
}

Contents Explorer::contentsOf(ReadingParty& party) const {
  Contents walked(scenario_.keys.size());
  Contents looked(scenario_.keys.size());
  std::size_t left = walked.size();
  for (Answer answer = party.first(); answer.found; answer = party.next()) {
    std::size_t const place = judge_.placeOf(answer.key);
    if (place == walked.size() || left-- == 0) return {Answer::kTorn};
    walked[place] = answer.version;
  }
  for (std::size_t key = 0; key < looked.size(); ++key) {
    Answer const answer = party.lookup(scenario_.keys[key]);
    looked[key] = answer.found ? (answer.key == scenario_.keys[key] ? answer.version : Answer::kTorn) : 0;
  }
  return walked == looked ? walked : Contents{Answer::kTorn, 0};
}

std::optional<Contents> Explorer::freshContents() {
  Mappings mappings;
  auto const party = readerOf(scenario_.table.records, stage_.directory());
  probe_.mappingsAre(mappings);
  ProbeScope const watching(&probe_);
  if (!party->initialize()) return std::nullopt;
  return contentsOf(*party);
}

Moment Explorer::momentOf(Reader& reader) {
  Moment moment;
  {
    probe_.mappingsAre(reader.mappings);
    ProbeScope const watching(&probe_);
    moment.contents = contentsOf(*reader.party);
    for (std::uint32_t slot = 0; slot < slotCount_; ++slot)
      moment.slots.push_back(reader.party->valueOf(slot));
    moment.isGone = reader.party->told();
  }
  moment.fresh = freshContents();
  return moment;
}

void Explorer::takeMoments() {
  Reader reader;
  attach(reader);
  for (Timeline::Position position = 0; position <= timeline_.last() && reproach_.empty(); ++position) {
    probe_.restAt(position);
    try {
      reproach_ = judge_.add(momentOf(reader), timeline_);
      if (reproach_.empty()) reproach_ = probe_.misdeed();
    } catch (std::exception const& thrown) {
      reproach_ = fmt::format("position {}: alone one is thrown at: {}", position, thrown.what());
    } catch (ScheduleProbe::Endless const&) {
      reproach_ = fmt::format("position {}: alone one gets to no end", position);
    }
  }
}

Outcome Explorer::explore(Program const& program, std::uint64_t budget, bool allOfThree) {
  Outcome outcome;
  outcome.reproach = reproach_;
  if (!reproach_.empty() || search(program, Search::every, 0, budget, outcome)) return outcome;
  outcome.isAll = false;
  if (allOfThree) search(program, Search::preempted, 3, UINT64_MAX, outcome);
  search(program, Search::preempted, 4, budget, outcome);
  search(program, Search::random, 0, budget, outcome);
  return outcome;
}

// True where nothing is left to be searched for.
bool Explorer::search(Program const& program, Search search, unsigned preemptions, std::uint64_t budget,
                      Outcome& outcome) {
  if (!outcome.reproach.empty()) return true;
  probe_.searchIs(search, preemptions);
  if (search == Search::random) probe_.choices().randomIs(TestSupport::seed());
  for (std::uint64_t schedules = 0; schedules < budget; ++schedules) {
    ++outcome.schedules;
    outcome.reproach = run(program);
    if (!outcome.reproach.empty() || !probe_.choices().next()) return true;
  }
  return false;
}

std::set<std::string> Explorer::allAnswers(Program const& program, Search search, unsigned preemptions) {
  std::set<std::string> all;
  probe_.searchIs(search, preemptions);
  do {
    std::string const reproach = run(program);
    if (!isCutShort_) all.insert(answers_ + reproach);
  } while (probe_.choices().next());
  return all;
}

std::string Explorer::run(Program const& program) {
  Reader newcomer;
  bool const isNew = program.kind == Program::comeAnew;
  if (isNew) newcomer.party = readerOf(scenario_.table.records, stage_.directory());
  if (!isNew && !isAsNew(reader_)) attach(reader_);
  Reader& reader = isNew ? newcomer : reader_;
  probe_.mappingsAre(reader.mappings);
  probe_.start();
  answers_.clear();
  isCutShort_ = false;
  std::string reproach;
  try {
    ProbeScope const watching(&probe_);
    reproach = runWith(*reader.party, program);
    if (reproach.empty()) reproach = probe_.misdeed();
  } catch (std::exception const& thrown) {
    reproach = fmt::format("thrown: {}", thrown.what());
  } catch (ScheduleProbe::Endless const&) {
    reproach = "no end";
  } catch (ScheduleProbe::KnownFromHere const&) {
    isCutShort_ = true;
  }
  if (reproach.empty()) return {};
  reader_.party.reset();
  return fmt::format("{}, the writer at {} of {}: {}", program.text(), probe_.position(), timeline_.last(),
                     reproach);
}

template <class Call, class Check>
std::string Explorer::called(ReadingParty const& party, Call&& call, Check&& check) {
  probe_.call();
  Window window{probe_.position(), 0};
  Answer const answer = call();
  window.end = probe_.position();
  answers_ += fmt::format("{}:{} ", answer.key.number, answer.version);
  if (std::string reproach = judge_.told(party.told(), window); !reproach.empty()) return reproach;
  if (!party.told()) return check(answer, window);
  return answer.found ? "an answer of a table that was given up" : "";
}

std::string Explorer::runWith(ReadingParty& party, Program const& program) {
  switch (program.kind) {
    case Program::lookup:
      return called(
          party, [&] { return party.lookup(scenario_.keys[program.key]); },
          [&](Answer const& answer, Window window) { return judge_.lookup(program.key, answer, window); });
    case Program::slot: {
      auto const slot = static_cast<std::uint32_t>(program.key);
      return called(
          party, [&] { return party.valueOf(slot); },
          [&](Answer const& answer, Window window) { return judge_.slot(slot, answer, window); });
    }
    case Program::comeAnew:
      return comeAnew(party, program.key);
    default:
      return walk(party);
  }
}

std::string Explorer::walk(ReadingParty& party) {
  std::optional<Answer> before;
  for (;;) {
    Answer answer;
    std::string reproach = called(
        party, [&] { return answer = before ? party.next() : party.first(); },
        [&](Answer const&, Window window) { return judge_.step(before, answer, window); });
    if (!reproach.empty() || !answer.found) return reproach;
    before = answer;
  }
}

std::string Explorer::comeAnew(ReadingParty& party, std::size_t key) {
  probe_.call();
  Window window{probe_.position(), 0};
  bool const isIn = party.initialize();
  window.end = probe_.position();
  if (!isIn) return judge_.refusal(window);
  probe_.call();
  window.begin = probe_.position();
  Answer const answer = party.lookup(scenario_.keys[key]);
  window.end = probe_.position();
  if (party.told()) return answer.found ? "an answer of a table that was given up" : "";
  return judge_.lookupFresh(key, answer, window);
}

}  // namespace ScheduleTests
