// The writer's validation and the checker of tools are two codes for one format: here they judge the same
// files.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "Vault/MapDescriptor.h"
#include "Vault/StoreCheck.h"
#include "Vault/StoreFiles.h"
#include "Vault/VaultWriter.h"
#include "runtime/Orlo/Hash.h"
#include "runtime/Vault/Ops.h"
#include "tests/support/Files.h"
#include "tests/support/Seed.h"
#include "tests/support/StoreBytes.h"

namespace {

using TestSupport::TempDir;
using Vault::StoredType;
using Vault::StoreFiles;

// Few hashes, so that chains are long and keys of equal hashes meet.
struct Key {
  std::uint32_t hash(std::uint32_t seed) const { return (number % 97 * 0x9e3779b9U) ^ seed; }
  friend auto operator<=>(Key const&, Key const&) = default;
  std::uint32_t number = 0;
};

struct Record {
  Key const& key() const { return key_; }
  static constexpr std::string_view typeName() { return "Test::AgreementRecord"; }
  Key key_;
  std::uint32_t data[2] = {};
};

}  // namespace

template <>
struct fmt::formatter<Key> : Dovel::PlainFormatter {
  auto format(Key const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "{}", key.number);
  }
};

namespace {

using Value = OrloVault::ValWrap<Record, Key, &Record::key, false>;
using Writer = Vault::VaultWriter<Vault::OpsOf<Value>>;

Record recordIn(std::byte const* value) {
  Record record;
  std::memcpy(static_cast<void*>(&record), value, sizeof record);
  return record;
}

constexpr StoredType kType{
    Record::typeName(),
    sizeof(Record),
    [](std::byte const* value, std::uint32_t seed) { return recordIn(value).key().hash(seed); },
    [](std::byte const* a, std::byte const* b) { return recordIn(a).key() <=> recordIn(b).key(); },
    [](std::byte const* value) { return Dovel::String(std::to_string(recordIn(value).key().number)); },
    [](std::byte const*, Vault::FieldSink&) {}};

class Store {
 public:
  Store() : path_(Dovel::Platform::getDebugHandler("StoreAgreementTest", true), dir_.path(), true) {}

  std::unique_ptr<Writer> attach() const {
    Vault::MapDescriptor descriptor(200);
    descriptor.localMem = false;
    auto writer = std::make_unique<Writer>(path_.debugHandler(), path_, descriptor);
    writer->initialize("none");
    return writer;
  }

  // The first problem, empty where there is none.
  std::string problem() const {
    StoreFiles const files(path_, StoreFiles::Extent::whole);
    auto const report = checkStore(files.slots(), files.buckets(), files.generation(), &kType);
    return report.sound() ? "" : std::string(report.problems.front().view());
  }

  SharedMem::EmberId generation() const {
    return StoreFiles(path_, StoreFiles::Extent::headers).generation();
  }

  std::string file(char const* name) const { return dir_.file(name); }

 private:
  TempDir const dir_;
  Mem::RootPath const path_;
};

Value valueOf(std::uint32_t number) {
  Record record;
  record.key_.number = number;
  record.data[0] = ~number;
  return Value(record);
}

void doRandomly(Writer& writer, std::mt19937_64& random, std::uint32_t keys) {
  auto const number = static_cast<std::uint32_t>(random() % keys);
  Value removed;
  switch (random() % 6) {
    case 0:
    case 1:
    case 2:
      writer.write(valueOf(number), true);
      break;
    case 3:
      writer.remove(Key{number}, removed);
      break;
    case 4:
      writer.directWrite(valueOf(number));
      writer.directCommit();
      break;
    default:
      writer.markAndSweepFlag(Key{number}, Vault::MarkAndSweepOperation::set);
  }
}

TEST(StoreAgreement, WhatAWriterLeavesIsSound) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  Store const store;
  auto writer = store.attach();
  // Up and down again, through growth and shrinking of slots and buckets.
  for (std::uint32_t const keys : {1U, 10U, 400U, 2000U, 400U, 10U}) {
    for (unsigned step = 0; step < 2000; ++step) doRandomly(*writer, random, keys);
    for (std::uint32_t number = keys; number < 2000; ++number) {
      Value removed;
      writer->remove(Key{number}, removed);
    }
    ASSERT_EQ(store.problem(), "");
  }
  SharedMem::EmberId const before = store.generation();
  writer.reset();
  EXPECT_EQ(store.problem(), "");
  store.attach();
  EXPECT_EQ(store.generation(), before);
}

TEST(StoreAgreement, BothRefuseTheSameDamage) {
  Dovel::Trace::levelsIs("StoreAgreementTest", 0);
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  Store const store;
  {
    auto const writer = store.attach();
    for (unsigned step = 0; step < 200; ++step) doRandomly(*writer, random, 60);
  }
  std::map<std::string, std::string> good;
  for (char const* const name : {"slots", "buckets", "ember", "owner"})
    good[name] = TestSupport::contentOf(store.file(name));
  unsigned sound = 0;
  constexpr unsigned kRuns = 300;
  for (unsigned run = 0; run < kRuns; ++run) {
    for (auto const& [name, content] : good) TestSupport::writeFile(store.file(name.c_str()), content);
    SharedMem::EmberId const before = store.generation();
    std::string content = good[random() % 3 == 0 ? "buckets" : "slots"];
    char const* const name = content == good["slots"] ? "slots" : "buckets";
    // A word changed in a bit, or to what stands elsewhere in the file; in the first kilobytes, where most
    // of what matters is.
    std::size_t const words = std::min<std::size_t>(content.size(), 3000) / 4;
    std::size_t const at = random() % words * 4;
    if (random() % 2 == 0) {
      content[at + random() % 4] ^= static_cast<char>(1 << random() % 8);
    } else {
      content.replace(at, 4, content.substr(random() % words * 4, 4));
    }
    if (random() % 16 == 0) content.resize(random() % content.size());
    if (content.empty()) continue;  // of a new store, to a writer
    TestSupport::writeFile(store.file(name), content);
    std::string const problem = store.problem();
    store.attach();
    bool const adopted = store.generation() == before;
    ASSERT_EQ(problem.empty(), adopted) << name << " at " << at << ", run " << run << ": " << problem;
    if (adopted) ++sound;
  }
  EXPECT_GT(sound, kRuns / 30);
  EXPECT_LT(sound, kRuns * 29 / 30);
}

}  // namespace
