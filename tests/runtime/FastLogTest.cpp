#include "runtime/FastLog/FastLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>

#include "runtime/Dovel/Exception.h"
#include "runtime/FastLog/Decoder.h"
#include "tests/support/Files.h"

namespace {

using FastLog::decode;
using FastLog::DecodedLog;
using FastLog::TraceHandle;
using TestSupport::TempDir;

std::vector<std::string> texts(DecodedLog const& log) {
  std::vector<std::string> all;
  for (auto const& message : log.messages) all.push_back(message.text);
  return all;
}

std::uint64_t clockNow() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                        std::chrono::system_clock::now().time_since_epoch())
                                        .count());
}

class FastLogTest : public testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = dir_.file("a.fastlog");
};

TEST_F(FastLogTest, NullHandleSkipsTheSiteWithItsArguments) {
  int evaluated = 0;
  TraceHandle* handle = nullptr;
  FASTLOG(handle, "value {}", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  TraceHandle open(path_);
  FASTLOG(&open, "value {}", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

TEST_F(FastLogTest, MessageComesBackWithPlaceTimeAndThread) {
  TraceHandle handle(path_);
  std::uint64_t const before = clockNow();
  FASTLOG(&handle, "moving {} to {}", 3, "four");
  int const line = __LINE__ - 1;
  std::uint64_t const after = clockNow();

  DecodedLog const log = decode(path_);
  ASSERT_EQ(log.messages.size(), 1U);
  auto const& message = log.messages[0];
  EXPECT_EQ(message.text, "moving 3 to four");
  EXPECT_EQ(message.file, "tests/runtime/FastLogTest.cpp");
  EXPECT_EQ(message.line, static_cast<std::uint32_t>(line));
  EXPECT_EQ(message.thread, static_cast<std::uint32_t>(::gettid()));
  EXPECT_FALSE(message.cut);
  std::uint64_t const slack = 100'000'000;  // a step of the wall clock aside, the clocks agree far better
  EXPECT_GE(message.time + slack, before);
  EXPECT_LE(message.time, after + slack);
  EXPECT_EQ(log.pid, static_cast<std::uint64_t>(::getpid()));
  EXPECT_EQ(log.overwrittenMessages + log.tornMessages + log.undescribedMessages, 0U);
}

TEST_F(FastLogTest, EveryKindOfArgumentIsFormattedAsTheCallerWouldHave) {
  TraceHandle handle(path_);
  Dovel::String const own("own");
  std::string const withZero("a\0b", 3);
  char const* const none = nullptr;
  FASTLOG(&handle, "{} {} {:#x} {}", -1, std::int64_t{-5'000'000'000}, std::uint8_t{200}, ~std::uint64_t{0});
  FASTLOG(&handle, "{} {} {:.2f} {}", true, 'c', 2.5, static_cast<void const*>(&handle));
  FASTLOG(&handle, "{} {} {} {:>4} {}", own, withZero, std::string_view("view"), "r", none);
  FASTLOG(&handle, "nothing but {{}}");
  FASTLOG(&handle, "{:{}}|", 7, 3);
  EXPECT_THAT(texts(decode(path_)),
              testing::ElementsAre("-1 -5000000000 0xc8 18446744073709551615",
                                   fmt::format("true c 2.50 {}", static_cast<void const*>(&handle)),
                                   std::string("own a\0b view    r (null)", 24), "nothing but {}", "  7|"));
}

TEST_F(FastLogTest, StepsOfASiteCanBeWrittenOut) {
  TraceHandle handle(path_);
  static int msgId;
  ASSERT_FALSE(FastLog::TraceFile::msgIdInitialized(msgId));
  {
    FastLog::MsgDesc desc(handle.mtTraceFile(), &msgId, "Shadow.cpp", 12);
    FastLog::MsgFormatString::put(desc, "download {}");
    FastLog::msgDesc(desc, std::string_view());
    desc.finish();
  }
  ASSERT_TRUE(FastLog::TraceFile::msgIdInitialized(msgId));
  FastLog::RingBuf ringBuf;
  ringBuf.startMsg(handle.mtTraceFile(), msgId);
  FastLog::put(ringBuf, Dovel::String("all"));
  ringBuf.endMsg();
  DecodedLog const log = decode(path_);
  ASSERT_THAT(texts(log), testing::ElementsAre("download all"));
  EXPECT_EQ(log.messages[0].file, "Shadow.cpp");
  EXPECT_EQ(log.messages[0].line, 12U);
}

TEST_F(FastLogTest, FullRingKeepsTheNewestAndCountsTheRest) {
  constexpr int kMessages = 1000;
  TraceHandle handle(path_, {.cells = 64, .descriptorBytes = 65536});
  for (int i = 0; i < kMessages; ++i) FASTLOG(&handle, "number {}", i);
  DecodedLog const log = decode(path_);
  ASSERT_EQ(log.messages.size(), 64U);
  EXPECT_EQ(log.overwrittenMessages, 936U);
  EXPECT_EQ(log.tornMessages, 0U);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(log.messages[static_cast<std::size_t>(i)].text, fmt::format("number {}", 936 + i));
  }
}

TEST_F(FastLogTest, MessageOverTheEndOfTheRingIsWholeAndOneHalfOverwrittenIsNotTorn) {
  TraceHandle handle(path_, {.cells = 32, .descriptorBytes = 65536});
  std::string const text(200, 'x');  // four cells of payload and a half: 5 cells
  for (int i = 0; i < 20; ++i) FASTLOG(&handle, "{} {}", i, text);
  DecodedLog const log = decode(path_);
  ASSERT_EQ(log.messages.size(), 6U);  // 30 of 32 cells; the other two are of the one before
  EXPECT_EQ(log.overwrittenMessages, 14U);
  EXPECT_EQ(log.tornMessages, 0U);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(log.messages[static_cast<std::size_t>(i)].text, fmt::format("{} {}", 14 + i, text));
  }
}

TEST_F(FastLogTest, TooLongAMessageIsCutAndMarked) {
  TraceHandle handle(path_);
  FASTLOG(&handle, "{} then {}", std::string(2000, 'y'), "short");
  FASTLOG(&handle, "{}", std::string(878, 'z'));
  FASTLOG(&handle, "{:s}{:d}", std::string(876, 'z'), 7);
  FASTLOG(&handle, "after");
  FASTLOG(&handle, "{}", std::string(879, 'w'));
  DecodedLog const log = decode(path_);
  ASSERT_EQ(log.messages.size(), 5U);
  EXPECT_TRUE(log.messages[0].cut);
  EXPECT_EQ(log.messages[0].text, std::string(878, 'y') + " then <cut>");
  EXPECT_FALSE(log.messages[1].cut);
  EXPECT_EQ(log.messages[1].text, std::string(878, 'z'));
  EXPECT_TRUE(log.messages[2].cut);
  EXPECT_THAT(log.messages[2].text, testing::HasSubstr("not formatted"));
  EXPECT_EQ(log.messages[3].text, "after");
  EXPECT_TRUE(log.messages[4].cut);
  EXPECT_EQ(log.messages[4].text, std::string(878, 'w'));
}

TEST_F(FastLogTest, OneSiteLogsToSeveralFilesAndAFileMadeLaterKnowsIt) {
  std::string const secondPath = dir_.file("b.fastlog");
  TraceHandle first(path_);
  auto const log = [](TraceHandle& handle, int number) { FASTLOG(&handle, "number {}", number); };
  log(first, 1);
  TraceHandle second(secondPath);
  log(second, 2);
  log(first, 3);
  EXPECT_THAT(texts(decode(path_)), testing::ElementsAre("number 1", "number 3"));
  EXPECT_THAT(texts(decode(secondPath)), testing::ElementsAre("number 2"));
}

TEST_F(FastLogTest, MessageOfASiteThatFoundNoRoomIsKeptWithoutText) {
  TraceHandle handle(path_, {.cells = 64, .descriptorBytes = 64});
  FASTLOG(&handle, "a format too long for an area of sixty-four bytes {}", 1);
  DecodedLog const log = decode(path_);
  ASSERT_EQ(log.messages.size(), 1U);
  EXPECT_EQ(log.undescribedMessages, 1U);
  EXPECT_EQ(log.messages[0].file, "?");
}

TEST_F(FastLogTest, CellThatAStoppedWriterHoldsIsLeftAloneAndCountedAsTorn) {
  TraceHandle handle(path_, {.cells = 16, .descriptorBytes = 65536});
  auto const log = [&handle](int number) { FASTLOG(&handle, "number {}", number); };
  for (int i = 0; i < 17; ++i) log(i);  // the next goes to cell 1
  int const fd = ::open(path_.c_str(), O_RDWR);
  std::uint64_t const stopped = FastLog::Tag{2, 0, 1}.word() | FastLog::Tag::kWriting;
  auto const cellOffset = static_cast<off_t>(FastLog::kHeaderBytes + 65536 + sizeof(FastLog::Cell));
  ASSERT_EQ(::pwrite(fd, &stopped, sizeof stopped, cellOffset), ssize_t{sizeof stopped});
  log(17);
  log(18);
  std::uint64_t tag = 0;
  ASSERT_EQ(::pread(fd, &tag, sizeof tag, cellOffset), ssize_t{sizeof tag});
  ::close(fd);
  EXPECT_EQ(tag, stopped);
  DecodedLog const decoded = decode(path_);
  EXPECT_EQ(decoded.tornMessages, 1U);
  EXPECT_EQ(decoded.messages.size(), 15U);
  EXPECT_EQ(decoded.overwrittenMessages, 3U);
  EXPECT_EQ(decoded.messages.back().text, "number 18");
}

TEST_F(FastLogTest, FileThatCannotBeMadeIsAnErrorThatNamesIt) {
  try {
    TraceHandle handle("/nonexistent/a.fastlog");
    FAIL() << "nothing was thrown";
  } catch (Dovel::MemoryResourceException const& failure) {
    EXPECT_EQ(failure.msg(), "cannot make the log file /nonexistent/a.fastlog: No such file or directory");
  }
  EXPECT_THROW(TraceHandle(path_, {.cells = std::uint64_t{1} << 52}), Dovel::MemoryResourceException);
  EXPECT_THAT(dir_.files(), testing::IsEmpty());
}

}  // namespace
