#include <gtest/gtest.h>

#include <atomic>
#include <charconv>
#include <map>
#include <thread>
#include <vector>

#include "runtime/FastLog/Decoder.h"
#include "runtime/FastLog/FastLog.h"
#include "tests/runtime/SelfCheck.h"
#include "tests/support/Files.h"

namespace {

using TestSupport::TempDir;
constexpr std::uint64_t kThreads = 4;
constexpr std::uint64_t kMessages = 5000;
constexpr int kLiveReads = 200;

// Each thread's numbers must rise; gaps are what the log says it has lost.
void checkOrder(FastLog::DecodedLog const& log) {
  std::map<std::uint64_t, std::uint64_t> newest;
  for (auto const& message : log.messages) {
    SelfCheck const parsed = SelfCheck::parse(message.text);
    ASSERT_TRUE(parsed.sound) << message.text;
    auto const [place, first] = newest.emplace(parsed.thread, parsed.number);
    if (first) continue;
    ASSERT_LT(place->second, parsed.number) << "thread " << parsed.thread;
    place->second = parsed.number;
  }
}

TEST(FastLogThreads, MessagesOfManyThreadsAreWholeWhileTheyAreWrittenAndAfterwards) {
  TempDir const dir;
  std::string const path = dir.file("a.fastlog");
  FastLog::TraceHandle handle(path, {.cells = 256, .descriptorBytes = 65536});
  std::atomic<bool> enough = false;
  std::atomic<std::uint64_t> written = 0;
  std::vector<std::thread> threads;
  for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      std::uint64_t i = 0;
      for (; i < kMessages || !enough; ++i) SelfCheck::log(&handle, thread, i);
      written += i;
    });
  }
  for (int i = 0; i < kLiveReads; ++i) checkOrder(FastLog::decode(path));
  enough = true;
  for (std::thread& thread : threads) thread.join();
  FastLog::DecodedLog const log = FastLog::decode(path);
  checkOrder(log);
  EXPECT_GT(log.messages.size(), 50U);
  EXPECT_EQ(log.messages.size() + log.overwrittenMessages + log.tornMessages, written);
}

TEST(FastLogThreads, ThreadsThatMeetAtANewSiteAgreeOnItsId) {
  TempDir const dir;
  std::string const path = dir.file("a.fastlog");
  FastLog::TraceHandle handle(path);
  std::atomic<bool> go = false;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      while (!go) std::this_thread::yield();
      FASTLOG(&handle, "met at {}", "one site");
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  FastLog::DecodedLog const log = FastLog::decode(path);
  ASSERT_EQ(log.messages.size(), 8U);
  for (auto const& message : log.messages) EXPECT_EQ(message.text, "met at one site");
}

}  // namespace
