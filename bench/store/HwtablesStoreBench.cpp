// Our own store, and how long its longest single write holds up the thread while a table grows.
#include "bench/store/HwtablesTable.h"
#include "bench/store/TableBench.h"
#include "runtime/TaskSchedulerRoot.h"

namespace {

using namespace StoreBench;

// Measures the time between two chances for critical tasks to run: the ends of a write, since between two
// writes a program may turn to its scheduler, and each run of this task, which posts itself anew.
class ChanceWatch {
 public:
  ChanceWatch() { post(); }
  ChanceWatch(ChanceWatch const&) = delete;
  ChanceWatch& operator=(ChanceWatch const&) = delete;
  ~ChanceWatch() {
    *alive_ = false;
    scheduler_->runCriticalPriorityTasks();
  }

  void beginWrite() { last_ = processorSeconds(); }
  void chance() {
    double const now = processorSeconds();
    longest_ = std::max(longest_, now - last_);
    last_ = now;
  }
  double longest() const { return longest_; }
  std::uint64_t runs() const { return runs_; }

 private:
  void post() {
    scheduler_->post(TaskSchedulerRoot::Priority::critical, [this, alive = alive_] {
      if (!*alive) return;
      ++runs_;
      chance();
      post();
    });
  }

  Dovel::Ptr<TaskSchedulerRoot> scheduler_ = Dovel::schedulerRootDovel();
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  double last_ = 0;
  double longest_ = 0;
  std::uint64_t runs_ = 0;
};

// What is reported: the longest write, or the longest stretch without a chance.
enum class Longest { write, stretch };

void measureLongest(benchmark::State& state, std::uint32_t count, bool yields, Longest what) {
  for (auto _ : state) {
    Directory directory;
    HwtablesTable table(directory, count, yields);
    ChanceWatch watch;
    double longest = 0;
    for (std::uint32_t const number : Workload::of(count).present) {
      Record const record = recordOf(number, 0);
      watch.beginWrite();
      longest = std::max(longest, secondsOf([&] { table.put(record); }));
      watch.chance();
    }
    state.SetIterationTime(what == Longest::write ? longest : watch.longest());
    if (table.size() != count || (watch.runs() > 0) != yields)
      state.SkipWithError("the table did not grow as it should have");
  }
  state.SetItemsProcessed(state.iterations());
}

void registerLongest(std::string const& operation, std::string const& who, bool yields, Longest what) {
  std::uint32_t const count = 1'000'000;
  benchmark::RegisterBenchmark(("store/" + operation + "/" + who + "/" + std::to_string(count)).c_str(),
                               [=](benchmark::State& state) { measureLongest(state, count, yields, what); })
      ->UseManualTime()
      ->Iterations(1);
}

[[maybe_unused]] bool const registered = [] {
  registerTable<HwtablesTable>("hwtables");
  registerLongest("longest_write", "hwtables", false, Longest::write);
  registerLongest("longest_write", "hwtables_yielding", true, Longest::write);
  registerLongest("longest_stretch", "hwtables_yielding", true, Longest::stretch);
  return true;
}();

}  // namespace
