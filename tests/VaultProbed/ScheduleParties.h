// The two who meet in the schedule tests, the writer of a table and a reader of it, whatever their records
// are: all that depends on the type of the records is compiled in one place. One thread.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace ScheduleTests {

// The test says what a key hashes to.
struct Key {
  std::uint32_t number = 0;
  std::uint32_t chosenHash = 0;

  std::uint32_t hash(std::uint32_t /*seed*/) const { return chosenHash; }
  friend auto operator<=>(Key const&, Key const&) = default;
};

// Every record has two words that differ from version to version: they must never be seen apart.
enum class Records {
  small,        // the hash stands alone
  sharingWord,  // the hash is in one word with the end of the value
  large         // of which two fill a page: tables of them grow early
};

// The words of a slot.
std::size_t slotCellsOf(Records records);

struct Table {
  Records records = Records::small;
  unsigned maxSize = 16;
  bool fixedSize = true;  // else it begins with the slots of a page
};

struct Operation {
  enum Kind {
    write,
    remove,
    direct,  // in two halves
    mark,
    attach,  // a new writer takes the table over
    cleanup  // the table is removed
  };

  Kind kind = write;
  Key key{};
  std::uint32_t version = 0;
};

// What a reader was told.
struct Answer {
  bool found = false;
  Key key{};
  std::uint32_t version = 0;

  // The version of a record that was never written.
  static constexpr std::uint32_t kTorn = 0xffffffff;

  friend bool operator==(Answer const&, Answer const&) = default;
};

class WritingParty {
 public:
  virtual ~WritingParty() = default;
  virtual void apply(Operation const& operation) = 0;
  // As if it had died: the mark of a dead writer is put into the files, whatever it had done.
  virtual void die() = 0;
};

class ReadingParty {
 public:
  virtual ~ReadingParty() = default;
  virtual bool initialize() = 0;
  virtual Answer lookup(Key const& key) = 0;
  // The key stands in the record that the answer goes to.
  virtual Answer lookupInPlace(Key const& key) = 0;
  virtual Answer first() = 0;
  // The record after the one that the last first() or next() found.
  virtual Answer next() = 0;
  virtual Answer valueOf(std::uint32_t slot) = 0;
  // Whether it was told that its table was given up.
  virtual bool told() const = 0;
  // A reader that followed no resize is as good as new once the files are as they were.
  virtual std::uint64_t resizes() const = 0;
};

std::unique_ptr<WritingParty> writerOf(Table const& table, std::string const& directory);
std::unique_ptr<ReadingParty> readerOf(Records records, std::string const& directory);

}  // namespace ScheduleTests
