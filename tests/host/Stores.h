// Stores for the program to look at: a root of its own for a test, and files written byte by byte.
#pragma once

#include <string>
#include <vector>

#include "tests/host/Program.h"
#include "tests/support/Files.h"
#include "tests/support/StoreBytes.h"

// A store of 8 slots and 4 buckets, whose rows are of MplsIsemHwEm, or of a type named otherwise.
TestSupport::StoreBytes storeOf(std::vector<std::uint32_t> const& labels,
                                std::string const& type = "MplsIsemHwEm");

// The root of all stores of a test.
class StoreRoot {
 public:
  // Makes the directory of a store, and returns its path.
  std::string make(std::string const& name) const;
  std::string put(TestSupport::StoreBytes const& store, std::string const& name) const;
  std::string const& path() const { return dir_.path(); }
  // Runs "hwtables store" with these arguments.
  Outcome run(std::string const& arguments) const;

 private:
  TestSupport::TempDir const dir_;
};

// The lock of a writer at work.
class HeldLock {
 public:
  explicit HeldLock(std::string const& directory);
  HeldLock(HeldLock const&) = delete;
  HeldLock& operator=(HeldLock const&) = delete;
  ~HeldLock();

 private:
  int const file_;
};
