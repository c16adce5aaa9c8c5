#include "tests/Vault/TortureLives.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/memory/OwnerFile.h"

namespace Torture {
namespace {

Dovel::Platform::DebugHandler handler() { return Dovel::Platform::getDebugHandler("Torture", true); }

Mem::RootPath rootOf(std::string const& path) { return {handler(), path, true}; }

Vault::MapDescriptor descriptor() {
  // Less than there are keys, so that the table also grows past what it was asked for.
  Vault::MapDescriptor result(kKeys / 2);
  result.localMem = false;
  return result;
}

std::string torn(Record const& record) {
  if (record.isWhole()) return {};
  return fmt::format("a torn record: key {} version {} words {:x} {:x} {:x}", record.theKey.number,
                     record.version(), record.words[1], record.words[2], record.words.back());
}

std::seed_seq sequenceOf(std::uint64_t seed, std::uint64_t number) {
  return {static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
          static_cast<std::uint32_t>(number), static_cast<std::uint32_t>(number >> 32)};
}

}  // namespace

void World::complain(std::string const& trouble) {
  int nobody = 0;
  if (trouble.empty() || !complaint_.compare_exchange_strong(nobody, 1)) return;
  std::copy_n(trouble.begin(), std::min(trouble.size(), text_.size() - 1), text_.begin());
  complaint_ = 2;
}

std::string World::complaint() const {
  if (complaint_ == 1) return "who complains has not come to an end of it";
  return complaint_ == 2 ? text_.data() : "";
}

WriterLife::WriterLife(World& world, std::string path, std::uint64_t seed, bool removesTables)
    : world_(world), path_(std::move(path)), removesTables_(removesTables) {
  auto sequence = sequenceOf(seed, world_.begun);
  random_.seed(sequence);
}

void WriterLife::attach() {
  world_.isThere = false;
  // Whether the table will be wiped is only known when it is.
  for (KeyHistory& key : world_.keys) key.beginWipe();
  writer_ = std::make_unique<Writer>(handler(), rootOf(path_), descriptor());
  writer_->initialize("torture");
  tallied_ = {};
  recover();
  world_.begun = world_.done.load();
  world_.isThere = true;
}

void WriterLife::recover() {
  SharedMem::OwnerFile owner(handler(), rootOf(path_), false);
  bool const wiped = owner.wiped();
  for (std::uint32_t number = 0; number < kKeys; ++number)
    world_.complain(world_.keys[number].recovered(find(number), wiped || world_.isRemoved));
  if (wiped) ++world_.wipes;
  world_.isRemoved = false;
  owner.wipedIs(false);
}

Version WriterLife::find(std::uint32_t number) {
  bool found = false;
  Value value;
  writer_->lookup({number}, found, &value);
  if (!found) return 0;
  world_.complain(torn(value));
  return value.version();
}

// Turns of filling and emptying, of overwriting a few keys without pause, and of few keys that come and go.
void WriterLife::step() {
  std::uint64_t const turn = world_.done / 4000 % 5;
  ++world_.begun;
  std::uint32_t const range = turn == 1 || turn == 4 ? 12 : kKeys;
  std::uint32_t const number = pick(range);
  std::uint32_t const removals = turn == 1 ? 0 : turn == 2 ? 14 : 5;
  std::uint32_t const what = pick(4000);
  if (what == 0 && removesTables_ && pick(10) == 0) {
    removeTable();
  } else if (what < 4) {
    writer_->shrink();
  } else if (what < 100) {
    writer_->markAndSweepFlag({number}, static_cast<Vault::MarkAndSweepOperation>(pick(3)));
  } else if (pick(16) < removals) {
    remove(number);
  } else if (pick(4) == 0) {
    writeDirectly(number);
  } else {
    write(number);
  }
  if (++world_.done % 256 == 0) tally();
}

void WriterLife::write(std::uint32_t number) {
  KeyHistory& key = world_.keys[number];
  Value const value = Record::of({number}, key.begin(true));
  writer_->write(value, true);
  key.acknowledge();
}

void WriterLife::writeDirectly(std::uint32_t number) {
  KeyHistory& key = world_.keys[number];
  Value const value = Record::of({number}, key.begin(true));
  writer_->directWrite(value);
  writer_->directCommit();
  key.acknowledge();
}

void WriterLife::remove(std::uint32_t number) {
  KeyHistory& key = world_.keys[number];
  Version const before = key.acknowledged();
  if (isPresent(before)) key.begin(false);
  Value value;
  bool const removed = writer_->remove({number}, value);
  if (removed != isPresent(before))
    world_.complain(fmt::format("removing key {} of version {} returned {}", number, before, removed));
  if (!removed) return;
  key.acknowledge();
  world_.complain(torn(value));
  if (value.version() != before)
    world_.complain(fmt::format("removed version {}, not {}", value.version(), before));
}

void WriterLife::tally() {
  Vault::Writer::Counters const& counters = writer_->counters();
  world_.slotGrows += counters.slotGrows - tallied_.slotGrows;
  world_.slotShrinks += counters.slotShrinks - tallied_.slotShrinks;
  world_.slotsMoved += counters.slotsMoved - tallied_.slotsMoved;
  tallied_ = counters;
}

void WriterLife::removeTable() {
  world_.isThere = false;
  for (KeyHistory& key : world_.keys) key.beginWipe();
  world_.isRemoved = true;
  writer_->cleanup();
  writer_.reset();
  ++world_.removedTables;
  std::uint64_t const begun = world_.begun;
  attach();
  world_.begun = begun;
}

ReaderLife::ReaderLife(World& world, ReaderTally& tally, std::string path, std::uint64_t seed)
    : world_(world), tally_(tally), path_(std::move(path)) {
  auto sequence = sequenceOf(seed, tally_.answers);
  random_.seed(sequence);
}

bool ReaderLife::attach() {
  auto reader = std::make_unique<Reader>(handler(), rootOf(path_));
  if (!reader->initialize("torture")) return false;
  ++tally_.attaches;
  reader_ = std::move(reader);
  published_ = {};
  return true;
}

void ReaderLife::step() {
  if (reader_ == nullptr && !attach()) return;
  std::uint32_t const what = pick(2000);
  if (what < 4) {
    walk();
    if (reader_ != nullptr) publishCounters();
  } else if (what < 200) {
    readSlot();
  } else {
    // Half of the questions are about the keys that change all the time.
    lookUp(pick(pick(2) == 0 ? 12 : kKeys));
  }
  tally_.answers.fetch_add(1);
}

bool ReaderLife::isAnswered() {
  if (reader_->connected()) return true;
  publishCounters();
  reader_.reset();
  tally_.replacements.fetch_add(1);
  return false;
}

void ReaderLife::lookUp(std::uint32_t number) {
  Question question(world_.keys[number]);
  bool found = false;
  Value value;
  reader_->lookup({number}, found, &value);
  if (found) {
    world_.complain(torn(value));
    if (value.theKey.number != number)
      world_.complain(fmt::format("found key {} for {}", value.theKey.number, number));
    world_.complain(question.found(value.version()));
    tally_.found.fetch_add(1);
  } else if (isAnswered()) {
    world_.complain(question.missed());
    tally_.missed.fetch_add(1);
  }
}

void ReaderLife::walk() {
  Walk walk(world_.keys);
  Value value;
  Vault::IterHint hint;
  // What the hint is about grows old where other questions come between.
  std::uint32_t const questions = pick(4) == 0 ? 1 : 0;
  for (bool more = reader_->first(value, hint); more; more = reader_->next(value.theKey, value, hint)) {
    world_.complain(torn(value));
    world_.complain(walk.returned(value.theKey.number, placeOf(value.theKey), value.version()));
    if (world_.isComplained()) return;
    for (std::uint32_t at = 0; at < questions && pick(8) == 0; ++at) {
      lookUp(pick(kKeys));
      if (reader_ == nullptr) return;
    }
  }
  if (!isAnswered()) return;
  world_.complain(walk.ended());
  tally_.walks.fetch_add(1);
}

void ReaderLife::readSlot() {
  std::uint32_t const slot = pick(reader_->capacity() + 8);
  Value value;
  if (!reader_->getValue(slot, value, nullptr)) return;
  world_.complain(torn(value));
  if (!value.isWhole()) return;
  // Now the key is known, and the question can be asked.
  std::uint32_t const number = value.theKey.number;
  if (number >= kKeys) return world_.complain(fmt::format("slot {} holds key {}", slot, number));
  Question question(world_.keys[number]);
  if (!reader_->getValue(slot, value, nullptr) || value.theKey.number != number) return;
  world_.complain(torn(value));
  world_.complain(question.foundInSlot(value.version()));
  tally_.slots.fetch_add(1);
}

void ReaderLife::publishCounters() {
  Vault::Reader::Counters const now = reader_->readerCounters();
  tally_.lookasideReads.fetch_add(now.lookasideReads - published_.lookasideReads);
  tally_.restarts.fetch_add(now.restarts - published_.restarts);
  tally_.resizes.fetch_add(now.slotResizes + now.bucketResizes - published_.slotResizes -
                           published_.bucketResizes);
  published_ = now;
}

}  // namespace Torture
