// The one place where a test build can watch the store at work: every access to a shared word, and every call
// that creates, grows, writes, punches or removes a file of a store. Without HWTABLES_STORE_PROBE nothing of
// it is compiled. A probe may throw: the store then meets an exception at that very point.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace Mem {

#ifdef HWTABLES_STORE_PROBE

class Probe {
 public:
  // Before the access. The cell's old contents can still be read.
  virtual void load(std::uint64_t const& /*cell*/) {}
  virtual void store(std::uint64_t& /*cell*/, std::uint64_t /*value*/) {}
  // Before and after a system call; `file` is the path of what it changes.
  virtual void beforeCall(char const* /*call*/, char const* /*file*/) {}
  virtual void afterCall(char const* /*call*/, char const* /*file*/) {}
  // Before a system call that asks what the name of a file leads to, or how long that file is.
  virtual void look(char const* /*file*/) {}
  // A file stands in memory, from here on at that place.
  virtual void mapped(char const* /*file*/, void const* /*base*/, std::size_t /*size*/) {}

 protected:
  ~Probe() = default;
};

// Of this thread; null where nobody watches.
extern thread_local constinit Probe* probe;

namespace Impl {

inline void probeLoad(std::uint64_t const& cell) {
  if (probe != nullptr) probe->load(cell);
}
inline void probeStore(std::uint64_t& cell, std::uint64_t value) {
  if (probe != nullptr) probe->store(cell, value);
}
inline void probeLook(char const* file) {
  if (probe != nullptr) probe->look(file);
}
inline void probeMapped(char const* file, void const* base, std::size_t size) {
  if (probe != nullptr) probe->mapped(file, base, size);
}

}  // namespace Impl

#else

namespace Impl {

inline void probeLoad(std::uint64_t const&) {}
inline void probeStore(std::uint64_t&, std::uint64_t) {}
inline void probeLook(char const*) {}
inline void probeMapped(char const*, void const*, std::size_t) {}

}  // namespace Impl

#endif

// Makes a system call that changes a file of a store, between the probe's two calls.
template <class Call>
auto probedCall([[maybe_unused]] char const* name, [[maybe_unused]] char const* file, Call&& call) {
#ifdef HWTABLES_STORE_PROBE
  if (probe != nullptr) probe->beforeCall(name, file);
  auto const result = call();
  int const error = errno;
  if (probe != nullptr) probe->afterCall(name, file);
  errno = error;
  return result;
#else
  return call();
#endif
}

}  // namespace Mem
