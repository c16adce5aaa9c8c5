#include <fmt/format.h>
#include <gmock/gmock.h>
#include <syslog.h>

#include <mutex>
#include <thread>

#include "runtime/Dovel/TraceChannel.h"
#include "runtime/Dovel/Util.h"
#include "runtime/Orlo/HwAbstractionLog.h"
#include "runtime/Orlo/Log.h"
#include "tests/support/ChildProcess.h"

namespace {

using namespace std::chrono_literals;
using Orlo::LogDescriptor;
using Orlo::LogHandle;
using Orlo::LogLimit;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;

struct Message {
  int severity;
  std::string text;
  friend bool operator==(Message const&, Message const&) = default;
  friend void PrintTo(Message const& message, std::ostream* out) {
    *out << message.severity << ' ' << message.text;
  }
};

std::mutex mutex;
std::vector<Message> messages;

// Takes the messages of one test and keeps its traces off the screen.
class Log : public ::testing::Test {
 protected:
  Log() {
    Dovel::Trace::levelsIs("Log", 0);
    former_ = Orlo::logBackEndIs([](int severity, char const* text) {
      std::scoped_lock const lock(mutex);
      messages.push_back({severity, text});
    });
  }
  ~Log() override {
    Orlo::logBackEndIs(former_);
    messages.clear();
    Dovel::Trace::levelsIs("Log", 1);
  }

 private:
  Orlo::LogBackEnd former_;
};

constexpr LogDescriptor plain{"PLAIN", "%s", "Plain", "\x01", LOG_WARNING, 0};
constexpr LogDescriptor rich{"RICH", "%s|%d|%5.2f|%-4s|%x|%c|%%|%lu", "Rich", "\x01", LOG_ERR, 0};

TEST_F(Log, HasTheThreeMessagesOfTheHardwareAbstraction) {
  struct Expected {
    LogDescriptor const& descriptor;
    char const* name;
    char const* format;
    char const* explanation;
  };
  for (auto const& [descriptor, name, format, explanation] :
       {Expected{Orlo::HW_ABSTRACTION_ERROR, "HW_ABSTRACTION_ERROR",
                 "Hardware abstraction error: unable to load item: %s",
                 "Hardware abstraction error: unable to load some persistent items. Some agents will be "
                 "restarted"},
        Expected{Orlo::HW_ABSTRACTION_RELAUNCH_ERROR, "HW_ABSTRACTION_RELAUNCH_ERROR", "%s",
                 "Duplicate Writer Detected, vault path not cleaned up"},
        Expected{Orlo::HW_ABSTRACTION_EXCEPTION, "HW_ABSTRACTION_EXCEPTION", "%s", "Exception"}}) {
    EXPECT_STREQ(descriptor.name, name);
    EXPECT_STREQ(descriptor.format, format);
    EXPECT_STREQ(descriptor.explanation, explanation);
    EXPECT_STREQ(descriptor.action, "\x01");
    EXPECT_EQ(descriptor.severity, 3);
    EXPECT_EQ(descriptor.reserved, 0U);
  }
}

TEST_F(Log, PassesEveryMessageWithoutALimit) {
  LogHandle handle(Orlo::HW_ABSTRACTION_ERROR, Dovel::Duration::zero(), 1.0, 0, 0);
  for (int i = 0; i < 3; ++i) handle.log(Dovel::String("VsiToVni"));
  Message const expected{LOG_ERR,
                         "HW_ABSTRACTION_ERROR: Hardware abstraction error: unable to load item: VsiToVni"};
  EXPECT_THAT(messages, ElementsAre(expected, expected, expected));
}

TEST_F(Log, FillsPrintfFormatsWithArgumentsOfAnyType) {
  LogHandle handle(rich, Dovel::Duration::zero(), 1.0, 0, 0);
  handle.log(Dovel::String("own"), -3, 2.5, std::string_view("ab"), 255U, 'c', ~0UL);
  handle.log(static_cast<char const*>(nullptr), 1LL << 40, 2.0F, "yes", -1, 'd', 7);
  EXPECT_THAT(messages,
              ElementsAre(Message{LOG_ERR, "RICH: own|-3| 2.50|ab  |ff|c|%|18446744073709551615"},
                          Message{LOG_ERR, "RICH: (null)|1099511627776| 2.00|yes |ffffffff|d|%|7"}));
}

TEST_F(Log, TellsAMismatchOfFormatAndArguments) {
  LogHandle handle(rich, Dovel::Duration::zero(), 1.0, 0, 0);
  handle.log("one");
  ASSERT_THAT(messages, SizeIs(1));
  EXPECT_THAT(messages[0].text, HasSubstr("RICH: %s|%d|%5.2f|%-4s|%x|%c|%%|%lu (not formatted: "));
}

TEST_F(Log, KeepsErrno) {
  LogHandle handle(plain, Dovel::Duration::zero(), 1.0, 0, 0);
  Orlo::logBackEndIs([](int, char const*) { errno = EIO; });
  errno = ENOTTY;
  handle.log("text");
  EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Log, HoldsBackRepetitionsAndTellsTheirNumber) {
  {
    LogHandle handle(plain, 1h, 1.0, 2, 0);
    for (int i = 0; i < 5; ++i) handle.log(std::to_string(i));
    EXPECT_THAT(messages, ElementsAre(Message{LOG_WARNING, "PLAIN: 0"}, Message{LOG_WARNING, "PLAIN: 1"}));
    messages.clear();
  }
  EXPECT_THAT(messages, ElementsAre(Message{LOG_WARNING, "PLAIN: 3 similar messages suppressed"}));
}

TEST_F(Log, TellsSuppressedMessagesBeforeTheFirstOfTheNextWindow) {
  LogHandle handle(plain, 20ms, 1.0, 1, 0);
  handle.log("a");
  for (int i = 0; i < 2; ++i) handle.log("b");
  if (messages.size() != 1) GTEST_SKIP() << "this machine was too slow for a window of 20 ms";
  std::this_thread::sleep_for(25ms);
  handle.log("c");
  EXPECT_THAT(messages, ElementsAre(Message{LOG_WARNING, "PLAIN: a"},
                                    Message{LOG_WARNING, "PLAIN: 2 similar messages suppressed"},
                                    Message{LOG_WARNING, "PLAIN: c"}));
}

TEST_F(Log, SaysSoWhenItsLastMessageOfTheProcessHasPassed) {
  LogHandle handle(plain, Dovel::Duration::zero(), 1.0, 0, 2);
  for (char const* text : {"a", "b", "c", "d"}) handle.log(text);
  EXPECT_THAT(messages,
              ElementsAre(Message{LOG_WARNING, "PLAIN: a"}, Message{LOG_WARNING, "PLAIN: b"},
                          Message{LOG_WARNING,
                                  "PLAIN: no more messages of this kind will be logged by this process"}));
}

TEST_F(Log, CountsTheMessagesOfAllThreads) {
  {
    LogHandle handle(plain, 1h, 1.0, 5, 0);
    auto const logMany = [&] {
      for (int i = 0; i < 100; ++i) handle.log("text");
    };
    std::thread first(logMany);
    std::thread second(logMany);
    first.join();
    second.join();
    EXPECT_THAT(messages, SizeIs(5));
  }
  EXPECT_EQ(messages.back().text, "PLAIN: 195 similar messages suppressed");
}

TEST_F(Log, IsSeenAsATraceToo) {
  Dovel::Trace::levelsIs("Log", 1);
  LogHandle handle(plain, Dovel::Duration::zero(), 1.0, 0, 0);
  ::testing::internal::CaptureStderr();
  handle.log("text");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), AllOf(HasSubstr(" Log 0 tests/runtime/LogTest.cpp:"),
                                                              EndsWith(" LogHandle::log PLAIN: text\n")));
}

TEST_F(Log, TakesTheCanaryAsAnInformation) {
  auto const handler = Dovel::Platform::getDebugHandler("Canary", true);
  Dovel::Trace::levelsIs("Canary", 0x0002);
  ::testing::internal::CaptureStderr();
  Dovel::Util::emitCanaryLog(handler, "mounted VsiToVni mountStatus:2 100%s");
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              AllOf(HasSubstr(" Canary 1 "), EndsWith(" mounted VsiToVni mountStatus:2 100%s\n")));
  EXPECT_THAT(messages, ElementsAre(Message{LOG_INFO, "mounted VsiToVni mountStatus:2 100%s"}));
}

void logToSyslog() {
  // Besides sending it, syslog(3) itself then shows on standard error what it was given.
  ::openlog("logTest", LOG_PERROR, LOG_USER);
  Dovel::Trace::levelsIs("Log", 0);
  LogHandle handle(Orlo::HW_ABSTRACTION_EXCEPTION, Dovel::Duration::zero(), 1.0, 0, 0);
  handle.log("ran out of %d");
}
TestSupport::ChildRole const logToSyslogRole("logToSyslog", logToSyslog);

TEST(LogBackEnd, IsTheSystemLogByDefault) {
  EXPECT_EQ(TestSupport::runChild("logToSyslog").errors(),
            "logTest: HW_ABSTRACTION_EXCEPTION: ran out of %d\n");
}

LogLimit::Time at(Dovel::Duration sinceStart) { return LogLimit::Time(1000h + sinceStart); }

TEST(LogLimit, LetsOneMessageThroughPerWindowByDefault) {
  LogLimit limit(10s, 1.0, 0, 0);
  EXPECT_TRUE(limit.admit(at(0s)).passes);
  EXPECT_FALSE(limit.admit(at(9999ms)).passes);
  auto const next = limit.admit(at(10s));
  EXPECT_TRUE(next.passes);
  EXPECT_EQ(next.suppressed, 1U);
  EXPECT_FALSE(limit.admit(at(19s)).passes);
}

TEST(LogLimit, LengthensTheWindowWhileMessagesAreSuppressed) {
  LogLimit limit(10s, 2.0, 1, 0);
  limit.admit(at(0s));
  limit.admit(at(1s));                             // held back
  EXPECT_EQ(limit.admit(at(10s)).suppressed, 1U);  // opens 20 s
  EXPECT_FALSE(limit.admit(at(29s)).passes);
  EXPECT_TRUE(limit.admit(at(30s)).passes);  // opens 40 s
  EXPECT_TRUE(limit.admit(at(70s)).passes);  // nothing was held back: 10 s again
  EXPECT_TRUE(limit.admit(at(80s)).passes);
}

TEST(LogLimit, KeepsTheWindowWithAFactorOfOne) {
  LogLimit limit(10s, 1.0, 1, 0);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(limit.admit(at(i * 10s)).passes);
    EXPECT_FALSE(limit.admit(at(i * 10s + 5s)).passes);
  }
}

TEST(LogLimit, NeverLengthensAWindowPastADay) {
  LogLimit limit(1h, 1e300, 1, 0);
  limit.admit(at(0h));
  limit.admit(at(30min));
  EXPECT_TRUE(limit.admit(at(1h)).passes);
  EXPECT_FALSE(limit.admit(at(24h)).passes);
  EXPECT_TRUE(limit.admit(at(25h)).passes);
}

TEST(LogLimit, TreatsSenselessNumbersAsNone) {
  LogLimit negative(-5s, -1.0, 0, 0);
  EXPECT_TRUE(negative.admit(at(0s)).passes);
  EXPECT_TRUE(negative.admit(at(0s)).passes);
  LogLimit longest(Dovel::Duration::max(), 3.0, 1, 0);
  EXPECT_TRUE(longest.admit(at(0s)).passes);
  EXPECT_FALSE(longest.admit(at(9000h)).passes);
}

TEST(LogLimit, StopsForGoodAtTheLimitOfTheProcess) {
  LogLimit limit(10s, 1.0, 1, 2);
  EXPECT_FALSE(limit.admit(at(0s)).isLast);
  EXPECT_TRUE(limit.admit(at(10s)).isLast);
  EXPECT_FALSE(limit.admit(at(1000s)).passes);
  EXPECT_EQ(limit.suppressed(), 0U);
}

}  // namespace
