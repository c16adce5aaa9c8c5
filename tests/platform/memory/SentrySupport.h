// A directory with tables in it, sentries that guard them, and what they have told.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/memory/ReaderSentry.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/WriterSentry.h"
#include "runtime/TaskSchedulerRoot.h"
#include "tests/support/Files.h"

namespace TestSupport {

// Keeps what it was told; then does what the test wants done.
class Recorder final : public Mem::ReaderSentry::Notifiee, public Mem::WriterSentry::Notifiee {
 public:
  void handleAppeared() override { told("appeared"); }
  void handleChanged() override { told("changed"); }
  void handleFilesChanged(Dovel::String const& path) override { told(path.data()); }

  std::vector<std::string> seen;
  std::function<void()> then = [] {};

 private:
  void told(std::string const& what) {
    seen.push_back(what);
    auto const call = then;  // it may set another
    call();
  }
};

class SentryTest : public testing::Test {
 public:
  static void makeTableAt(std::string const& directory, std::uint32_t emberId);

 protected:
  // Events alone must do, unless a test asks for the timer.
  SentryTest() { Mem::FileWatch::safetyPeriodIs(std::chrono::hours(1)); }
  ~SentryTest() override { Mem::FileWatch::safetyPeriodIs(std::chrono::seconds(1)); }

  Mem::RootPath root(std::string const& table) const { return {handler_, dir_.file(table), true}; }

  // What happened before is told when it returns: the kernel queues events at once.
  void turn() {
    for (int i = 0; i < 4; ++i) scheduler_->runOnce(std::chrono::milliseconds(0));
  }
  // For what comes later. False where it doesn't come.
  bool turnUntil(std::function<bool()> const& isDone);

  // Complete but for its slots and buckets; the directory is made where it isn't there.
  void makeTable(std::string const& table, std::uint32_t emberId) const;
  void removeTable(std::string const& table) const;
  void writeEmber(std::string const& table, std::uint32_t emberId) const;
  // As a writer does: through a mapping, and then the time is moved.
  void storeEmberInPlace(std::string const& table, std::uint32_t emberId) const;
  // By another file of the same content.
  void replace(std::string const& file) const;

  Dovel::Platform::DebugHandler const handler_ = Dovel::Platform::getDebugHandler("SentryTest", true);
  Dovel::Ptr<TaskSchedulerRoot> const scheduler_ = Dovel::schedulerRootDovel();
  TempDir const dir_;
  Recorder recorder_;
};

// The inotify descriptors of this process, and the directories that they watch.
std::vector<std::string> inotifyDescriptors();
std::size_t watchedDirectories();

// While it lives, no descriptor can be had.
class NoDescriptors {
 public:
  NoDescriptors();
  NoDescriptors(NoDescriptors const&) = delete;
  NoDescriptors& operator=(NoDescriptors const&) = delete;
  ~NoDescriptors();

 private:
  unsigned long limit_;
};

}  // namespace TestSupport
