// The log across the ends and forks of real processes.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>

#include "runtime/FastLog/Decoder.h"
#include "runtime/FastLog/FastLog.h"
#include "tests/runtime/SelfCheck.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace {

using TestSupport::runChild;
using TestSupport::TempDir;
constexpr std::size_t kThreads = 2;

// Numbers that a process leaves behind for another, whatever becomes of it.
class Progress {
 public:
  Progress()
      : words_(static_cast<std::atomic<std::uint64_t>*>(
            ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress() { ::munmap(words_, 4096); }
  std::atomic<std::uint64_t>& operator[](std::size_t i) const { return words_[i]; }

 private:
  std::atomic<std::uint64_t>* words_;
};

pid_t forked(auto&& body) {
  pid_t const pid = ::fork();
  if (pid == 0) {
    body();
    ::_exit(0);
  }
  return pid;
}

int waitedFor(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return status;
}

void hasNoLog() {
  int evaluated = 0;
  FASTLOG(FastLog::defaultFastLogHandle, "value {}", ++evaluated);
  bool const none = FastLog::defaultFastLogHandle == nullptr && evaluated == 0;
  std::_Exit(none ? 0 : 1);
}
TestSupport::ChildRole const hasNoLogRole("hasNoLog", hasNoLog);

void logsOneMessage() { FASTLOG(FastLog::defaultFastLogHandle, "hello from {}", ::getpid()); }
TestSupport::ChildRole const logsOneMessageRole("logsOneMessage", logsOneMessage);

TEST(FastLogProcess, WithoutTheVariableTheHandleIsNullAndNothingIsEvaluated) {
  auto const unset = runChild("hasNoLog");
  EXPECT_EQ(unset.exitCode, 0);
  EXPECT_EQ(unset.errors(), "");
  EXPECT_EQ(runChild("hasNoLog", {{"HWTABLES_FASTLOG", ""}}).exitCode, 0);
}

TEST(FastLogProcess, WithTheVariableEachProcessHasAFileFromItsLoadOn) {
  TempDir const logs;
  EXPECT_EQ(runChild("logsOneMessage", {{"HWTABLES_FASTLOG", logs.path()}}).exitCode, 0);
  EXPECT_EQ(runChild("logsOneMessage", {{"HWTABLES_FASTLOG", logs.path()}}).exitCode, 0);
  auto const files = logs.files();
  ASSERT_EQ(files.size(), 2U);
  for (std::string const& file : files) {
    FastLog::DecodedLog const log = FastLog::decode(file);
    EXPECT_THAT(file, testing::HasSubstr(fmt::format("/hwtables-{}-", log.pid)));
    ASSERT_EQ(log.messages.size(), 1U);
    EXPECT_EQ(log.messages[0].text, fmt::format("hello from {}", log.pid));
  }
}

TestSupport::ChildRole const logsNothingRole("logsNothing", [] {});

TEST(FastLogProcess, FileWithoutMessagesIsGoneAfterTheProcess) {
  TempDir const logs;
  EXPECT_EQ(runChild("logsNothing", {{"HWTABLES_FASTLOG", logs.path()}}).exitCode, 0);
  EXPECT_THAT(logs.files(), testing::IsEmpty());
}

void makesAChildThatExits() {
  pid_t const pid = forked([] { std::exit(0); });
  bool const stands =
      waitedFor(pid) == 0 &&
      std::distance(std::filesystem::directory_iterator(std::getenv("HWTABLES_FASTLOG")), {}) == 1;
  std::_Exit(stands ? 0 : 1);
}
TestSupport::ChildRole const makesAChildThatExitsRole("makesAChildThatExits", makesAChildThatExits);

TEST(FastLogProcess, ForkedChildThatExitsLeavesItsParentsFileAlone) {
  TempDir const logs;
  EXPECT_EQ(runChild("makesAChildThatExits", {{"HWTABLES_FASTLOG", logs.path()}}).exitCode, 0);
}

void fileSizeLimited() {
  rlimit const limit{4096, 4096};
  ::setrlimit(RLIMIT_FSIZE, &limit);
  ::setenv("HWTABLES_FASTLOG", std::filesystem::temp_directory_path().c_str(), 1);
  FastLog::openDefaultLog();
  std::_Exit(FastLog::defaultFastLogHandle == nullptr ? 0 : 1);
}
TestSupport::ChildRole const fileSizeLimitedRole("fileSizeLimited", fileSizeLimited);

TEST(FastLogProcess, FileOverTheSizeLimitIsToldAndTheProcessGoesOn) {
  auto const child = runChild("fileSizeLimited");
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.errors(), testing::EndsWith(": File too large\n"));
}

void openWithoutStandardError() {
  ::close(STDERR_FILENO);
  ::setenv("HWTABLES_FASTLOG", "/nonexistent", 1);
  FastLog::openDefaultLog();
  std::_Exit(0);
}
TestSupport::ChildRole const openWithoutStandardErrorRole("openWithoutStandardError",
                                                          openWithoutStandardError);

TEST(FastLogProcess, FailureThatCannotBeToldDoesNotEndTheProcess) {
  EXPECT_EQ(runChild("openWithoutStandardError").exitCode, 0);
}

TEST(FastLogProcess, DirectoryThatIsMissingIsToldOnceAndTheHandleStaysNull) {
  auto const child = runChild("hasNoLog", {{"HWTABLES_FASTLOG", "/nonexistent"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.errors(),
              testing::MatchesRegex("hwtables: no fast log: cannot make the log file "
                                    "/nonexistent/hwtables-[0-9]+-[0-9.]+fastlog: No such file or "
                                    "directory\n"));
}

TEST(FastLogProcess, KilledWriterLeavesWholeMessagesUpToItsEnd) {
  TempDir const dir;
  std::string const path = dir.file("a.fastlog");
  Progress const done;
  pid_t const pid = forked([&] {
    FastLog::TraceHandle handle(path, {.cells = 8192, .descriptorBytes = 65536});
    auto const writer = [&](std::size_t thread) {
      for (std::uint64_t i = 0;; ++i) {
        SelfCheck::log(&handle, thread, i);
        done[thread] = i + 1;
      }
    };
    std::thread other(writer, 1);
    writer(0);
  });
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    while (done[thread] < 10000) std::this_thread::yield();
  }
  ::kill(pid, SIGKILL);
  ASSERT_TRUE(WIFSIGNALED(waitedFor(pid)));

  FastLog::DecodedLog const log = FastLog::decode(path);
  std::map<std::uint64_t, std::uint64_t> newest;
  for (auto const& message : log.messages) {
    SelfCheck const parsed = SelfCheck::parse(message.text);
    ASSERT_TRUE(parsed.sound) << message.text;
    newest[parsed.thread] = parsed.number;
  }
  std::uint64_t finished = 0;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    finished += done[thread];
    if (newest.contains(thread)) {
      EXPECT_GE(newest[thread] + 1, done[thread]);
    }
  }
  std::uint64_t const told = log.messages.size() + log.overwrittenMessages + log.tornMessages;
  EXPECT_GE(told, finished);
  EXPECT_LE(told, finished + kThreads);
  EXPECT_LE(log.tornMessages, kThreads + 1);
}

TEST(FastLogProcess, ForkedChildWritesNothingIntoItsParentsFileAndMayOpenItsOwn) {
  TempDir const dir;
  std::string const path = dir.file("parent.fastlog");
  TempDir const logs;
  FastLog::TraceHandle handle(path);
  auto const log = [](FastLog::TraceHandle* to, char const* who) { FASTLOG(to, "from the {}", who); };
  log(&handle, "parent");
  pid_t const pid = forked([&] {
    log(&handle, "wrong process");
    if (FastLog::defaultFastLogHandle != nullptr) ::_exit(1);
    ::setenv("HWTABLES_FASTLOG", logs.path().c_str(), 1);
    FastLog::openDefaultLog();
    log(FastLog::defaultFastLogHandle, "child");
  });
  ASSERT_EQ(waitedFor(pid), 0);
  log(&handle, "parent again");

  FastLog::DecodedLog const parents = FastLog::decode(path);
  ASSERT_EQ(parents.messages.size(), 2U);
  EXPECT_EQ(parents.messages[0].text, "from the parent");
  EXPECT_EQ(parents.messages[1].text, "from the parent again");
  ASSERT_EQ(logs.files().size(), 1U);
  FastLog::DecodedLog const childs = FastLog::decode(logs.files()[0]);
  ASSERT_EQ(childs.messages.size(), 1U);
  EXPECT_EQ(childs.messages[0].text, "from the child");
  EXPECT_EQ(childs.pid, static_cast<std::uint64_t>(pid));
  EXPECT_EQ(childs.messages[0].thread, static_cast<std::uint32_t>(pid));
}

}  // namespace
