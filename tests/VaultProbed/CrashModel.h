// What a table should hold, and what may be asked of it: the store in its smallest form.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Vault/VaultWriter.h"
#include "tests/VaultProbed/CrashRecord.h"

namespace CrashTests {

struct Operation {
  enum Kind { write, writeOnce, remove, direct, mark, unmark, scratchpad, shrink, kinds };

  Kind kind = write;
  std::uint32_t key = 0;
  std::uint32_t version = 0;

  std::string text() const;
};

struct Model {
  struct Entry {
    std::uint32_t version = 0;
    bool flag = false;

    friend bool operator==(Entry const&, Entry const&) = default;
  };

  std::map<std::uint32_t, Entry> entries;
  std::uint64_t scratchpad = 0;

  void apply(Operation const& operation);
  std::uint64_t digest() const;
  std::string text() const;

  friend bool operator==(Model const&, Model const&) = default;
};

template <class Ops>
void applyTo(Vault::VaultWriter<Ops>& writer, Operation const& operation) {
  CrashKey const key{operation.key};
  typename Ops::Value const value(typename Ops::Value::RecordType(key, operation.version));
  typename Ops::Value removed;
  switch (operation.kind) {
    case Operation::write:
    case Operation::writeOnce:
      writer.write(value, operation.kind == Operation::write);
      break;
    case Operation::remove:
      writer.remove(key, removed);
      break;
    case Operation::direct:
      writer.directWrite(value);
      writer.directCommit();
      break;
    case Operation::mark:
      writer.markAndSweepFlag(key, Vault::MarkAndSweepOperation::set);
      break;
    case Operation::unmark:
      writer.markAndSweepFlag(key, Vault::MarkAndSweepOperation::clear);
      break;
    case Operation::scratchpad:
      writer.scratchpadIs(operation.version);
      break;
    default:
      writer.shrink();
  }
}

// What the table holds. Where a record isn't byte for byte as it was written, or the counts contradict what
// is found, an entry that no operation makes tells so.
template <class Ops>
Model observed(Vault::VaultWriter<Ops>& writer) {
  constexpr Model::Entry kBroken{0xdeadbeef, true};
  Model model;
  typename Ops::Value value;
  Vault::IterHint hint;
  for (bool more = writer.first(value, hint); more; more = writer.next(value.fwkKey(), value, hint)) {
    CrashKey const key = value.fwkKey();
    bool const whole = value == typename Ops::Value::RecordType(key, value.version());
    bool found = false;
    bool const same = *writer.lookup(key, found, nullptr) == value && found;
    bool const flag = writer.markAndSweepFlag(key, Vault::MarkAndSweepOperation::read);
    model.entries[key.id] = whole && same ? Model::Entry{value.version(), flag} : kBroken;
  }
  if (writer.members() != model.entries.size()) model.entries[0xdeadbeef] = kBroken;
  model.scratchpad = writer.scratchpad();
  return model;
}

}  // namespace CrashTests
