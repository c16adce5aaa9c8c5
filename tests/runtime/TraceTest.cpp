#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <latch>
#include <regex>
#include <thread>

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace {

struct Fragile {};

ORLO_DEFAULT_TRACE_HANDLE("TraceTestUnit")

}  // namespace

template <>
struct fmt::formatter<Fragile> : Dovel::PlainFormatter {
  fmt::format_context::iterator format(Fragile const&, fmt::format_context&) const {
    throw std::runtime_error("cannot be shown");
  }
};

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

void traceShapes() {
  Orlo::TraceHandle const unit("MplsIsemHwEm", false);
  auto const handler = Dovel::Platform::getDebugHandler("Vault-MplsIsemHwEm", true);
  Dovel::fmtrace(unit, 3, "Vault/SlotWriter", "write", 12, "SlotWriterTable", "moving fromSlot:{} toSlot:{}",
                 4, 5);
  Dovel::fmtrace(handler, 0, "a.cpp", "free", 1, nullptr, "{}", Dovel::String("bare"));
  Dovel::fmtrace(handler, 0, "a.cpp", "free", 2, "", "first\nsecond\n\nfourth\n\n");
  Dovel::fmtrace(handler, 0, "a.cpp", "free", 3, "", "{}", std::string(100'000, 'x'));
  Dovel::fmtrace(handler, 0, "a.cpp", "free", 4, "", "value {}", Fragile());
  Dovel::fmtrace(handler, 0, nullptr, nullptr, 5, nullptr, "placeless");
}
TestSupport::ChildRole const traceShapesRole("traceShapes", traceShapes);

std::string withoutTimeAndPid(std::string const& line) {
  static std::regex const head(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z \d+ )");
  EXPECT_TRUE(std::regex_search(line, head)) << line;
  return std::regex_replace(line, head, "", std::regex_constants::format_first_only);
}

TEST(TraceLine, IsOneWriteWhateverTheMessage) {
  auto const child = TestSupport::runChild("traceShapes");
  ASSERT_EQ(child.exitCode, 0);
  ASSERT_THAT(child.writes, SizeIs(6));
  EXPECT_EQ(withoutTimeAndPid(child.writes[0]),
            "MplsIsemHwEm 3 Vault/SlotWriter:12 SlotWriterTable::write moving fromSlot:4 toSlot:5\n");
  EXPECT_EQ(withoutTimeAndPid(child.writes[1]), "Vault-MplsIsemHwEm 0 a.cpp:1 free bare\n");
  EXPECT_EQ(withoutTimeAndPid(child.writes[2]),
            "Vault-MplsIsemHwEm 0 a.cpp:2 free first\n\tsecond\n\t\n\tfourth\n");
  EXPECT_EQ(withoutTimeAndPid(child.writes[3]),
            "Vault-MplsIsemHwEm 0 a.cpp:3 free " + std::string(100'000, 'x') + "\n");
  EXPECT_THAT(child.writes[4], EndsWith("a.cpp:4 free value {} (not formatted: cannot be shown)\n"));
  EXPECT_THAT(child.writes[5], EndsWith(" 0 :5  placeless\n"));
}

TEST(TraceLine, TellsTheTimeInUtc) {
  auto const child = TestSupport::runChild("traceShapes", {{"TZ", "Asia/Tokyo"}});
  ASSERT_THAT(child.writes, SizeIs(6));
  std::tm time{};
  ASSERT_NE(::strptime(child.writes[0].c_str(), "%Y-%m-%dT%H:%M:%S", &time), nullptr);
  EXPECT_NEAR(static_cast<double>(::timegm(&time)), static_cast<double>(::time(nullptr)), 60);
}

TEST(TraceFile, IsAppendedTo) {
  TestSupport::TempDir const directory;
  std::string const file = directory.file("trace");
  TestSupport::writeFile(file, "before\n");
  auto const child = TestSupport::runChild("traceShapes", {{"HWTABLES_TRACE_FILE", file}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.writes, IsEmpty());
  auto const lines = TestSupport::linesOf(file);
  ASSERT_THAT(lines, SizeIs(1 + 6 + 3));
  EXPECT_EQ(lines[0], "before");
  EXPECT_THAT(lines[1], EndsWith("moving fromSlot:4 toSlot:5"));
}

TEST(TraceFile, IsReplacedByStandardErrorWhereItCannotBeOpened) {
  auto const child = TestSupport::runChild("traceShapes", {{"HWTABLES_TRACE_FILE", "/no/such/folder/trace"}});
  ASSERT_THAT(child.writes, SizeIs(7));
  EXPECT_EQ(child.writes[0],
            "hwtables: cannot open HWTABLES_TRACE_FILE /no/such/folder/trace: No such file or directory; "
            "traces go to "
            "standard error\n");
  EXPECT_THAT(child.writes[1], EndsWith("moving fromSlot:4 toSlot:5\n"));
}

TEST(FailedTrace, IsSilentOnAFullDevice) {
  auto const child = TestSupport::runChild("traceShapes", {{"HWTABLES_TRACE_FILE", "/dev/full"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.writes, IsEmpty());
}

// Exit code 0: survived with errno kept.
void traceOrExit(int failure) {
  Orlo::TraceHandle const handle("Failing", false);
  errno = ENOTTY;
  DOVEL_TRACE(handle, 0, "", "to nobody {}", 1);
  if (errno != ENOTTY) std::_Exit(failure);
  sigset_t pending;
  ::sigpending(&pending);
  if (::sigismember(&pending, SIGPIPE) == 1 || ::sigismember(&pending, SIGXFSZ) == 1) std::_Exit(failure + 1);
}

void traceToNobody() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) std::_Exit(90);
  ::close(ends[0]);
  ::dup2(ends[1], STDERR_FILENO);
  traceOrExit(10);
  ::close(STDERR_FILENO);
  traceOrExit(20);
}
TestSupport::ChildRole const traceToNobodyRole("traceToNobody", traceToNobody);

TEST(FailedTrace, NeitherEndsTheProcessNorChangesErrno) {
  auto const child = TestSupport::runChild("traceToNobody");
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0);
}

void traceOverSizeLimit() {
  rlimit const limit{0, 0};
  ::setrlimit(RLIMIT_FSIZE, &limit);
  traceOrExit(10);
}
TestSupport::ChildRole const traceOverSizeLimitRole("traceOverSizeLimit", traceOverSizeLimit);

TEST(FailedTrace, SurvivesAFileAtItsSizeLimit) {
  TestSupport::TempDir const directory;
  auto const child =
      TestSupport::runChild("traceOverSizeLimit", {{"HWTABLES_TRACE_FILE", directory.file("trace")}});
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(TestSupport::linesOf(directory.file("trace")), IsEmpty());
}

void traceAcrossFork() {
  Orlo::TraceHandle const handle("Fork", false);
  DOVEL_TRACE(handle, 0, "", "parent {}", ::getpid());
  pid_t const child = ::fork();
  if (child == 0) {
    Orlo::TraceHandle const fresh("ForkChild", false);
    DOVEL_TRACE(fresh, 0, "", "child {}", ::getpid());
    std::_Exit(0);
  }
  ::waitpid(child, nullptr, 0);
}
TestSupport::ChildRole const traceAcrossForkRole("traceAcrossFork", traceAcrossFork);

TEST(TraceLine, ShowsThePidOfAForkedChild) {
  auto const child = TestSupport::runChild("traceAcrossFork");
  ASSERT_THAT(child.writes, SizeIs(2));
  EXPECT_TRUE(std::regex_match(child.writes[0], std::regex(R"(\S+Z (\d+) Fork 0 .* parent \1\n)")))
      << child.writes[0];
  EXPECT_TRUE(std::regex_match(child.writes[1], std::regex(R"(\S+Z (\d+) ForkChild 0 .* child \1\n)")))
      << child.writes[1];
}

constexpr int kLinesOfAThread = 2000;

void traceFromTwoThreads() {
  Orlo::TraceHandle const handle("Threads", false);
  std::latch start(2);
  auto const traceAll = [&](char name) {
    start.arrive_and_wait();
    for (int i = 0; i < kLinesOfAThread; ++i) {
      DOVEL_TRACE(handle, 0, "", "{} {}", i, std::string(static_cast<std::size_t>(i % 97), name));
    }
  };
  std::thread first(traceAll, 'a');
  std::thread second(traceAll, 'b');
  // Meanwhile other levels come and go, and channels are made.
  for (int i = 0; i < 200; ++i) {
    Dovel::Trace::levelsIs("Threads", static_cast<std::uint16_t>(i % 2 * 8 + 1));
    Orlo::TraceHandle("Threads" + std::to_string(i), true);
  }
  first.join();
  second.join();
}
TestSupport::ChildRole const traceFromTwoThreadsRole("traceFromTwoThreads", traceFromTwoThreads);

TEST(TraceLine, IsNeverMixedWithOneOfAnotherThread) {
  TestSupport::TempDir const directory;
  ASSERT_EQ(TestSupport::runChild("traceFromTwoThreads", {{"HWTABLES_TRACE_FILE", directory.file("trace")}})
                .exitCode,
            0);
  auto const lines = TestSupport::linesOf(directory.file("trace"));
  ASSERT_THAT(lines, SizeIs(2 * kLinesOfAThread));
  std::regex const shape(R"(\S+Z \d+ Threads 0 tests/runtime/TraceTest\.cpp:\d+ operator\(\) (\d+) (a*|b*))");
  for (auto const& line : lines) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, shape)) << line;
    EXPECT_EQ(parts[2].length(), std::stol(parts[1]) % 97);
  }
}

TEST(DisabledTrace, EvaluatesNothing) {
  int evaluated = 0;
  DOVEL_TRACE(_defaultTraceHandle(), 9, "", "{}", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ::testing::internal::CaptureStderr();
  DOVEL_TRACE(_defaultTraceHandle(), 0, "", "{}", ++evaluated);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr(" TraceTestUnit 0 tests/runtime/TraceTest.cpp:"));
  EXPECT_EQ(evaluated, 1);
}

// What a validator does: one text for the caller, and the same printed where level 0 is on.
bool validate(Orlo::TraceHandle const& handle, Dovel::String& error) {
  error = Dovel::fmtracestr(false, "Validator", "Vault/SlotWriter", "validate", 30, "slot {} is lost", 7);
  if ((*handle.mask() & 1) != 0) {
    Dovel::fmtrace(handle, 0, "Vault/SlotWriter", "validate", 31, "Validator", "{}", error);
  }
  return false;
}

TEST(Validator, FillsTheErrorStringWhetherOrNotItIsPrinted) {
  Orlo::TraceHandle const handle("Validation", false);
  for (std::uint16_t const mask : std::array<std::uint16_t, 2>{0, 1}) {
    Dovel::Trace::levelsIs("Validation", mask);
    Dovel::String error;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(validate(handle, error));
    std::string const printed = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(error, "slot 7 is lost");
    EXPECT_EQ(printed.empty(), mask == 0);
    if (mask != 0) {
      EXPECT_THAT(printed, EndsWith(" Validator::validate slot 7 is lost\n"));
    }
  }
}

TEST(ThrowWithSink, TracesTheMessageOnlyWhereItsLevelIsOn) {
  auto const handler = Dovel::Platform::getDebugHandler("ThrowWithSink", true);
  for (unsigned short const level : std::array<unsigned short, 2>{0, 1}) {
    ::testing::internal::CaptureStderr();
    try {
      Dovel::fmthrow<Dovel::RangeException>(handler, level, "SlotTable", "Vault/SlotTable", "grow", 5,
                                            "slot {}", 9);
      ADD_FAILURE() << "nothing was thrown";
    } catch (Dovel::RangeException const& caught) {
      EXPECT_EQ(caught.msg(), "slot 9");
    }
    std::string const printed = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed.empty(), level == 1);
    if (level == 0) {
      EXPECT_THAT(printed, EndsWith(" ThrowWithSink 0 Vault/SlotTable:5 SlotTable::grow slot 9\n"));
    }
  }
}

void assertWithSink() {
  auto const handler = Dovel::Platform::getDebugHandler("AssertWithSink", true);
  Dovel::fmassert(handler, "SlotTable", "Vault/SlotTable", "grow", 5, "slot {}", 9);
}
TestSupport::ChildRole const assertWithSinkRole("assertWithSink", assertWithSink);

TEST(AssertWithSink, PutsTheMessageIntoTheTraceFileToo) {
  TestSupport::TempDir const directory;
  auto const child =
      TestSupport::runChild("assertWithSink", {{"HWTABLES_TRACE_FILE", directory.file("trace")}});
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.writes, ElementsAre("slot 9\n"));
  EXPECT_THAT(TestSupport::linesOf(directory.file("trace")),
              ElementsAre(EndsWith(" SlotTable::grow slot 9")));
}

}  // namespace
