// The chip's status records, made and kept up to date by the platform. Table code holds them as Ptr<...
// const>, hands them on to command factories and flush helpers, and reads nothing of them. Immutable after
// they were made; any thread.
#pragma once

#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/String.h"

namespace Hardware::Loam {

// What command factories consult.
class Status : public Dovel::Tracked<Status> {
 public:
  explicit Status(Dovel::String name) : name_(std::move(name)) {}
  ~Status() override;
  Dovel::String const& name() const { return name_; }

 private:
  Dovel::String name_;
};

// The status of the modular database.
class MdbStatus : public Dovel::Tracked<MdbStatus> {
 public:
  explicit MdbStatus(Dovel::String name) : name_(std::move(name)) {}
  ~MdbStatus() override;
  Dovel::String const& name() const { return name_; }

 private:
  Dovel::String name_;
};

// What bulk memory commands need.
class LoamCmdletRequiredStatus : public Dovel::Tracked<LoamCmdletRequiredStatus> {
 public:
  explicit LoamCmdletRequiredStatus(Dovel::String name) : name_(std::move(name)) {}
  ~LoamCmdletRequiredStatus() override;
  Dovel::String const& name() const { return name_; }

 private:
  Dovel::String name_;
};

}  // namespace Hardware::Loam
