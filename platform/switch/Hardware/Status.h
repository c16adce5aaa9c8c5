// The chip's status records, made and kept up to date by the platform. Table code holds them as Ptr<...
// const>, hands them on to command factories and flush helpers, and reads nothing of them. Immutable after
// they were made; any thread.
#pragma once

#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/String.h"

namespace Hardware::Loam {

// A record that traces can name.
template <class Record>
class NamedRecord : public Dovel::Tracked<Record> {
 public:
  explicit NamedRecord(Dovel::String name) : name_(std::move(name)) {}
  Dovel::String const& name() const { return name_; }

 private:
  Dovel::String name_;
};

// What command factories consult.
class Status : public NamedRecord<Status> {
 public:
  using NamedRecord::NamedRecord;
  ~Status() override;
};

// The status of the modular database.
class MdbStatus : public NamedRecord<MdbStatus> {
 public:
  using NamedRecord::NamedRecord;
  ~MdbStatus() override;
};

// What bulk memory commands need.
class LoamCmdletRequiredStatus : public NamedRecord<LoamCmdletRequiredStatus> {
 public:
  using NamedRecord::NamedRecord;
  ~LoamCmdletRequiredStatus() override;
};

}  // namespace Hardware::Loam
