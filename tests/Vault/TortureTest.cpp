// One process writes a table and four read it, while they are stopped, continued, killed and started again at
// any moment. What each reader is told must be part of one history, and nobody may wait for anybody.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "Vault/Util.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/TraceChannel.h"
#include "tests/Vault/TortureLives.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace {

using namespace Torture;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Seen by all the processes.
class SharedWorld {
 public:
  SharedWorld()
      : world_(new(::mmap(nullptr, sizeof(World), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   World{}) {}
  SharedWorld(SharedWorld const&) = delete;
  SharedWorld& operator=(SharedWorld const&) = delete;
  ~SharedWorld() { ::munmap(world_, sizeof(World)); }

  World& operator*() const { return *world_; }
  World* operator->() const { return world_; }

 private:
  World* world_;
};

// A process that lives one of the two lives.
class Victim {
 public:
  Victim(World& world, std::function<void()> life) : world_(world), life_(std::move(life)) { start(); }
  Victim(Victim const&) = delete;
  Victim& operator=(Victim const&) = delete;
  ~Victim() { kill(); }

  void start() {
    pid_t const parent = ::getpid();
    pid_ = ::fork();
    stopped_ = false;
    if (pid_ == 0) live(parent);
  }
  void kill() {
    if (pid_ == 0) return;
    ::kill(pid_, SIGKILL);
    if (int const status = statusAtEnd(); !WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) ended(status);
  }
  void stop() {
    if (pid_ == 0) return;
    ::kill(pid_, SIGSTOP);
    int status = 0;
    ::waitpid(pid_, &status, WUNTRACED);
    if (!WIFSTOPPED(status)) return ended(status);
    stopped_ = true;
  }
  void proceed() {
    if (pid_ != 0) ::kill(pid_, SIGCONT);
    stopped_ = false;
  }
  bool isStopped() const { return stopped_; }
  // Complains of an end that nobody has brought about.
  void expectAlive() {
    int status = 0;
    if (pid_ != 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) ended(status);
  }
  // The life comes to its own end.
  void expectEnd() {
    if (int const status = statusAtEnd(); !WIFEXITED(status) || WEXITSTATUS(status) != 0) ended(status);
  }

 private:
  // Never returns into the test.
  [[noreturn]] void live(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    try {
      life_();
      ::_exit(0);
    } catch (Dovel::Exception const& caught) {
      world_.complain(fmt::format("thrown: {}", caught.what()));
    }
    ::_exit(1);
  }
  int statusAtEnd() {
    int status = 0;
    if (pid_ != 0) ::waitpid(std::exchange(pid_, 0), &status, 0);
    return status;
  }
  void ended(int status) {
    pid_ = 0;
    world_.complain(WIFSIGNALED(status) ? fmt::format("a process was ended by signal {}", WTERMSIG(status))
                                        : "a process has ended");
  }

  World& world_;
  std::function<void()> const life_;
  pid_t pid_ = 0;
  bool stopped_ = false;
};

class Torturer {
 public:
  explicit Torturer(std::uint64_t seed) : random_(seed), seed_(seed) {
    Dovel::Trace::levelsIs("Torture", 0);
    writer_ = std::make_unique<Victim>(*world_, [this] {
      WriterLife life(*world_, folder_.path(), seed_, true);
      life.attach();
      while (goesOn()) life.step();
    });
    for (std::size_t reader = 0; reader < kReaders; ++reader) {
      readers_.push_back(std::make_unique<Victim>(*world_, [this, reader] {
        ReaderLife life(*world_, world_->readers[reader], folder_.path(), seed_ + reader + 1);
        while (goesOn()) life.step();
      }));
    }
  }

  void run(Clock::duration span) {
    auto const end = Clock::now() + span;
    while (Clock::now() < end && !world_->isComplained() && !testing::Test::HasFailure()) {
      std::this_thread::sleep_for(std::chrono::microseconds(pick(6000)));
      strike();
      for (auto const& reader : readers_) reader->expectAlive();
      if (folder_.has(Vault::Util::kCorruptionFile)) world_->complain("a reader left a corruption marker");
    }
    finish();
  }

  World& world() { return *world_; }

  unsigned writerKills = 0;
  unsigned writerStops = 0;
  unsigned stopsInAnOperation = 0;
  unsigned readerKills = 0;
  unsigned readerStops = 0;

 private:
  bool goesOn() const { return !world_->ends && !world_->isComplained(); }
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  void strike() {
    Victim& reader = *readers_[pick(kReaders)];
    switch (pick(8)) {
      case 0:
      case 1:
        return killWriter();
      case 2:
      case 3:
        return stopWriter();
      case 4:
        return killReader(reader);
      case 5:
        return stopAllReaders();
      default:
        return stopOrContinue(reader);
    }
  }

  void killWriter() {
    ++writerKills;
    writer_->kill();
    // Readers go on with what the dead one left.
    if (pick(4) == 0) expectReadersToGoOn("the writer is dead");
    writer_->start();
  }

  void stopWriter() {
    ++writerStops;
    writer_->stop();
    if (world_->begun != world_->done) ++stopsInAnOperation;
    expectReadersToGoOn("the writer is stopped");
    writer_->proceed();
  }

  void killReader(Victim& reader) {
    ++readerKills;
    reader.kill();
    reader.start();
  }

  void stopOrContinue(Victim& reader) {
    if (reader.isStopped()) return reader.proceed();
    ++readerStops;
    reader.stop();
  }

  void stopAllReaders() {
    for (auto const& reader : readers_)
      if (!reader->isStopped()) stopOrContinue(*reader);
    std::uint64_t const before = world_->done;
    expect("the writer goes on though all readers are stopped", [&] { return world_->done > before + 100; });
    for (auto const& reader : readers_)
      if (pick(4) != 0) reader->proceed();
  }

  void expectReadersToGoOn(char const* while_) {
    if (!world_->isThere) return;
    for (std::size_t at = 0; at < kReaders; ++at) {
      if (readers_[at]->isStopped()) continue;
      std::uint64_t const before = world_->readers[at].answers;
      expect(fmt::format("reader {} goes on while {}", at, while_).c_str(),
             [&] { return world_->readers[at].answers > before + 20; });
    }
  }

  // What is expected within seconds comes within microseconds, unless the machine is very busy.
  template <class Condition>
  void expect(char const* what, Condition&& condition) {
    auto const end = Clock::now() + 20s;
    while (!condition() && !world_->isComplained()) {
      if (Clock::now() > end) return world_->complain(fmt::format("not so: {}", what));
      for (auto const& reader : readers_) reader->expectAlive();
      std::this_thread::sleep_for(100us);
    }
  }

  void finish() {
    world_->ends = true;
    for (auto const& reader : readers_) reader->proceed();
    bool const isFine = !world_->isComplained();
    if (!isFine) return;  // whoever lives is killed with its object
    for (auto const& reader : readers_) reader->expectEnd();
    writer_->expectEnd();
    WriterLife life(*world_, folder_.path(), seed_, false);
    life.attach();
    EXPECT_TRUE(life.writer().validate());
  }

  std::mt19937_64 random_;
  std::uint64_t const seed_;
  TestSupport::StoreDir const folder_;
  SharedWorld world_;
  std::unique_ptr<Victim> writer_;
  std::vector<std::unique_ptr<Victim>> readers_;
};

// HWTABLES_TORTURE_SECONDS asks for more, or fewer.
std::chrono::seconds duration() {
  char const* const given = std::getenv("HWTABLES_TORTURE_SECONDS");
  return std::chrono::seconds(given != nullptr ? std::strtoul(given, nullptr, 0) : 20);
}

TEST(Torture, LetsReadersSeeOneHistoryWhateverIsDoneToThemAndToTheWriter) {
  PRINT_SEED_ON_FAILURE();
  Torturer torturer(TestSupport::seed());
  torturer.run(duration());
  World& world = torturer.world();
  ASSERT_EQ(world.complaint(), "");
  auto const sum = [&](auto member) {
    std::uint64_t total = 0;
    for (ReaderTally const& reader : world.readers) total += reader.*member;
    return total;
  };
  fmt::print(
      "{} operations; {} answers: {} found, {} missed, {} walks, {} slots; {} from the lookaside slot, {} "
      "restarts, {} resizes\n"
      "writer: {} kills, {} stops, {} of them in an operation; {} wipes, {} tables removed, {} growths, {} "
      "shrinks, {} slots moved\n"
      "readers: {} kills, {} stops, {} attaches, {} tables given up\n",
      world.done.load(), sum(&ReaderTally::answers), sum(&ReaderTally::found), sum(&ReaderTally::missed),
      sum(&ReaderTally::walks), sum(&ReaderTally::slots), sum(&ReaderTally::lookasideReads),
      sum(&ReaderTally::restarts), sum(&ReaderTally::resizes), torturer.writerKills, torturer.writerStops,
      torturer.stopsInAnOperation, world.wipes.load(), world.removedTables.load(), world.slotGrows.load(),
      world.slotShrinks.load(), world.slotsMoved.load(), torturer.readerKills, torturer.readerStops,
      sum(&ReaderTally::attaches), sum(&ReaderTally::replacements));
  for (auto const member :
       {&ReaderTally::found, &ReaderTally::missed, &ReaderTally::walks, &ReaderTally::slots,
        &ReaderTally::replacements, &ReaderTally::lookasideReads, &ReaderTally::resizes})
    EXPECT_GT(sum(member), 0U);
  for (auto const counter :
       {&World::wipes, &World::removedTables, &World::slotGrows, &World::slotShrinks, &World::slotsMoved})
    EXPECT_GT(world.*counter, 0U);
  EXPECT_GT(torturer.stopsInAnOperation, 0U);
}

}  // namespace
