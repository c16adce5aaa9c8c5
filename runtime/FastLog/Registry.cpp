#include "runtime/FastLog/Registry.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "runtime/FastLog/FastLog.h"
#include "runtime/FastLog/RingBuf.h"
#include "runtime/FastLog/TraceFile.h"

namespace FastLog::Registry {
namespace {

struct State {
  std::mutex lock;
  std::vector<std::vector<std::uint64_t>> descriptors;  // of id 1, 2, ...
  std::vector<TraceFile*> files;
};

State& state();

// A child owns neither the files nor the handle; the lock is held over the fork so that it gets a whole
// registry.
void handleForks() {
  ::pthread_atfork([] { state().lock.lock(); }, [] { state().lock.unlock(); },
                   [] {
                     defaultFastLogHandle = nullptr;
                     for (TraceFile* file : state().files) file->disown();
                     RingBuf::forgetThreadId();
                     state().lock.unlock();
                   });
}

// Never destroyed: sites may log until the very end of the process.
State& state() {
  static State* const made = [] {
    handleForks();
    return new State;
  }();
  return *made;
}

}  // namespace

void registerSite(std::vector<std::uint64_t> descriptor, int* msgId) {
  State& all = state();
  std::lock_guard const guard(all.lock);
  std::atomic_ref<int> const published(*msgId);
  if (published.load(std::memory_order_relaxed) != 0) return;
  // Sites beyond the last id share it; none of them is described.
  std::size_t const id = std::min<std::size_t>(all.descriptors.size() + 1, Subject::kMaxId);
  if (id < Subject::kMaxId) {
    Descriptor lead;
    std::memcpy(&lead, descriptor.data(), sizeof lead);
    lead.id = static_cast<std::uint32_t>(id);
    std::memcpy(descriptor.data(), &lead, sizeof lead);
    for (TraceFile* file : all.files) file->describe(descriptor);
    all.descriptors.push_back(std::move(descriptor));
  }
  published.store(static_cast<int>(id), std::memory_order_release);
}

void attach(TraceFile& file) {
  State& all = state();
  std::lock_guard const guard(all.lock);
  for (auto const& descriptor : all.descriptors) file.describe(descriptor);
  all.files.push_back(&file);
}

void detach(TraceFile& file) {
  State& all = state();
  std::lock_guard const guard(all.lock);
  std::erase(all.files, &file);
}

}  // namespace FastLog::Registry
