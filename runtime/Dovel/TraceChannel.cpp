#include "runtime/Dovel/TraceChannel.h"

#include <fmt/format.h>
#include <pthread.h>

#include <cstdlib>
#include <map>
#include <mutex>

#include "runtime/Dovel/TraceOutput.h"

namespace Dovel {
namespace {

class Registry {
 public:
  // Never freed: channels are used by static objects of other libraries until the very end of the process.
  static Registry& instance() {
    static Registry& registry = *new Registry;
    return registry;
  }

  Impl::TraceChannel& channel(std::string_view name, bool perObject) {
    std::scoped_lock const lock(mutex_);
    auto found = channels_.find(name);
    if (found == channels_.end()) {
      std::string owned(name);
      auto const mask = maskOf(owned);
      found = channels_.try_emplace(owned, owned, mask).first;
    }
    if (perObject) found->second.perObject.store(true, std::memory_order_relaxed);
    return found->second;
  }

  void add(std::vector<Trace::Rule> const& rules) {
    std::scoped_lock const lock(mutex_);
    for (auto const& rule : rules) addOne(rule);
  }

  std::vector<Trace::ChannelStatus> list() {
    std::scoped_lock const lock(mutex_);
    std::vector<Trace::ChannelStatus> result;
    result.reserve(channels_.size());
    for (auto const& [name, channel] : channels_) result.push_back({name, channel.mask, channel.perObject});
    return result;
  }

 private:
  Registry() {
    // A child of fork() may make handles, so no other thread may hold the mutex at that moment.
    ::pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                     [] { instance().mutex_.unlock(); });
    Impl::writeTrace("");  // opens the trace file: a person is told at the start that it can't be had
    char const* const list = std::getenv("HWTABLES_TRACE");
    auto parsed = Trace::parseRules(list == nullptr ? "" : list);
    if (!parsed.error.empty()) {
      Impl::tellUser(fmt::format("HWTABLES_TRACE is malformed and has no effect: {}", parsed.error));
    }
    rules_ = std::move(parsed.rules);
  }

  std::uint16_t maskOf(std::string const& name) const {
    for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule) {
      if (Trace::matches(*rule, name)) return rule->mask;
    }
    return Trace::kDefaultMask;
  }

  void addOne(Trace::Rule const& rule) {
    // An older rule of the same glob can never win again; without it the list stays short whatever callers
    // do.
    std::erase_if(rules_, [&](auto const& older) { return older.glob == rule.glob; });
    rules_.push_back(rule);
    for (auto& [name, channel] : channels_) {
      if (Trace::matches(rule, name)) channel.mask.store(rule.mask, std::memory_order_relaxed);
    }
  }

  std::mutex mutex_;
  std::map<std::string, Impl::TraceChannel, std::less<>> channels_;
  std::vector<Trace::Rule> rules_;
};

// A person is told of a mistake in the environment by every process, also by one that never traces.
[[maybe_unused]] bool const readAtLoad = (Registry::instance(), true);

}  // namespace

namespace Trace {

void levelsIs(std::string_view glob, std::uint16_t mask) {
  Registry::instance().add({Rule{std::string(glob), mask}});
}

std::string rulesIs(std::string_view list) {
  auto parsed = parseRules(list);
  Registry::instance().add(parsed.rules);
  return parsed.error;
}

std::vector<ChannelStatus> channels() { return Registry::instance().list(); }

}  // namespace Trace

Impl::TraceChannel& Impl::traceChannel(std::string_view name, bool perObject) {
  return Registry::instance().channel(name, perObject);
}

}  // namespace Dovel
