#include "tests/host/Stores.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/Orlo/Hash.h"

using TestSupport::Bytes;
using TestSupport::put32;
using TestSupport::StoreBytes;

namespace {

constexpr std::uint32_t kSeed = 0x5eed;

// Label and bottom-of-stack bit as the key, and the label in the row's bits 9 to 28.
StoreBytes::Record row(std::uint32_t label) {
  Bytes value(32);
  put32(value, 0, label);
  value[4] = std::byte{1};
  put32(value, 8, label << 9);
  Orlo::Hash hash(kSeed);
  hash.hashMix(label);
  hash.hashMix(std::uint8_t{1});
  return {value, hash.result()};
}

}  // namespace

StoreBytes storeOf(std::vector<std::uint32_t> const& labels, std::string const& type) {
  std::vector<StoreBytes::Record> records;
  for (std::uint32_t const label : labels) records.push_back(row(label));
  return {{"bcm88490_a0::" + type + "::Entry", 32, 8, 4, 0x00050006, kSeed}, records};
}

std::string StoreRoot::make(std::string const& name) const {
  std::string const path = dir_.file(name);
  for (std::size_t at = dir_.path().size() + 1; at < path.size(); ++at) {
    if (path[at] == '/') ::mkdir(path.substr(0, at).c_str(), 0755);
  }
  ::mkdir(path.c_str(), 0755);
  return path;
}

std::string StoreRoot::put(StoreBytes const& store, std::string const& name) const {
  std::string const path = make(name);
  store.writeTo(path);
  return path;
}

Outcome StoreRoot::run(std::string const& arguments) const {
  return runShell("HWTABLES_ROOT=" + dir_.path() + " HWTABLES store " + arguments);
}

HeldLock::HeldLock(std::string const& directory)
    : file_(::open((directory + "/.writer.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  EXPECT_EQ(::fcntl(file_, F_OFD_SETLK, &lock), 0);
}

HeldLock::~HeldLock() { ::close(file_); }
