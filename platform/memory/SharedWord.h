// The only door to the mapped files of a store. Every shared word is an aligned 64-bit cell that is read and
// written whole; each step of the protocol between the writer and its readers is a function of its own here.
//
// One thread of one process writes; any number of processes read, without locks. Invariants:
//  1. What a link leads to is stored before the link is.
//  2. A value changes only while its slot is open (bit 1 of the sequence is set) and its former contents
//     stand in the lookaside slot, or while no link leads to the slot.
//  3. The critical flag is set before anything else of an operation is stored, and cleared after all of it:
//     a writer that dies in between leaves it standing.
//  4. A file is grown before the count that needs it is published, and the count of the buckets is published
//     again behind that of the slots: its version tells of both.
//
// On x86-64 all of this compiles to plain moves. Value words are relaxed, and fences order them; as the
// thread sanitizer doesn't know fences, its builds order the value words themselves.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/memory/Probe.h"

#if defined(__SANITIZE_THREAD__)
#define HWTABLES_SHARED_WORD_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define HWTABLES_SHARED_WORD_TSAN 1
#endif
#endif

namespace Mem {

// An aligned 64-bit word of a mapped file. The lower of two 32-bit fields is in the lower half.
using Cell = std::uint64_t;

static_assert(std::atomic_ref<Cell>::is_always_lock_free);

constexpr std::uint32_t lowHalf(Cell word) { return static_cast<std::uint32_t>(word); }
constexpr std::uint32_t highHalf(Cell word) { return static_cast<std::uint32_t>(word >> 32); }
constexpr Cell fromHalves(std::uint32_t low, std::uint32_t high) { return Cell{high} << 32 | low; }

namespace SharedWord {

namespace Impl {

#ifdef HWTABLES_SHARED_WORD_TSAN
inline constexpr std::memory_order kValueLoad = std::memory_order_acquire;
inline constexpr std::memory_order kValueStore = std::memory_order_release;
[[gnu::always_inline]] inline void releaseFence() {}
[[gnu::always_inline]] inline void acquireFence() {}
#else
inline constexpr std::memory_order kValueLoad = std::memory_order_relaxed;
inline constexpr std::memory_order kValueStore = std::memory_order_relaxed;
[[gnu::always_inline]] inline void releaseFence() { std::atomic_thread_fence(std::memory_order_release); }
[[gnu::always_inline]] inline void acquireFence() { std::atomic_thread_fence(std::memory_order_acquire); }
#endif

template <std::memory_order order>
[[gnu::always_inline]] inline Cell load(Cell const& cell) {
  Mem::Impl::probeLoad(cell);
  return std::atomic_ref(const_cast<Cell&>(cell)).load(order);
}

template <std::memory_order order>
[[gnu::always_inline]] inline void store(Cell& cell, Cell value) {
  Mem::Impl::probeStore(cell, value);
  std::atomic_ref(cell).store(value, order);
}

}  // namespace Impl

// The writer reads what it alone has written, so nothing orders these.
[[gnu::always_inline]] inline Cell ownWord(Cell const& cell) {
  return Impl::load<std::memory_order_relaxed>(cell);
}

// Links, and the sequences in them.

// Partner: readLink. Without the release a reader could follow the link into a slot whose contents are still
// those of a former tenant.
[[gnu::always_inline]] inline void publishLink(Cell& cell, Cell link) {
  Impl::store<std::memory_order_release>(cell, link);
}

// Opens an occupied slot's value for change. Partner: readLink, before and after the copy. Without the
// release a reader could be sent to a lookaside slot that isn't filled yet; without the fence it could read a
// changed word of the value and still see the closed sequence in its re-check.
[[gnu::always_inline]] inline void openValue(Cell& cell, Cell link) {
  Impl::store<std::memory_order_release>(cell, link);
  Impl::releaseFence();
}

// Ends the change of a value; the slot is occupied from here on. Partner: readLink before the copy. Without
// the release a reader that sees the new sequence could still copy old words.
[[gnu::always_inline]] inline void closeValue(Cell& cell, Cell link) {
  Impl::store<std::memory_order_release>(cell, link);
}

// Takes a slot, whose predecessor leads elsewhere by now, out of use. Partner: readLink. Without the release
// a reader could see the slot free while a link still seems to lead to it, and take that for damage.
[[gnu::always_inline]] inline void vacateSlot(Cell& cell, Cell link) {
  Impl::store<std::memory_order_release>(cell, link);
}

// Partner: publishLink, openValue, closeValue and vacateSlot. Without the acquire the words of the slot could
// be older than its link.
[[gnu::always_inline]] inline Cell readLink(Cell const& cell) {
  return Impl::load<std::memory_order_acquire>(cell);
}

// Stands before every re-check of a sequence or version. Partner: the fences of openValue and enterCritical.
// Without it the re-check could be done before the copy that it is to vouch for.
[[gnu::always_inline]] inline void beforeRecheck() { Impl::acquireFence(); }

// Values and their hashes: consistent by the sequences around them alone.
[[gnu::always_inline]] inline void storeValueWord(Cell& cell, Cell word) {
  Impl::store<Impl::kValueStore>(cell, word);
}
[[gnu::always_inline]] inline Cell loadValueWord(Cell const& cell) {
  return Impl::load<Impl::kValueLoad>(cell);
}

// Headers.

// A version and a count in one word. Partner: readCount. Without the release a reader could use the new count
// before what it counts, heads or slots, is in place.
[[gnu::always_inline]] inline void publishCount(Cell& cell, Cell versionAndCount) {
  Impl::store<std::memory_order_release>(cell, versionAndCount);
}
// Partner: publishCount.
[[gnu::always_inline]] inline Cell readCount(Cell const& cell) {
  return Impl::load<std::memory_order_acquire>(cell);
}

// A word that readers take for approximate, or that only a later writer reads. Released all the same: the
// compiler then keeps the order of stores in which a dead writer's files are understood.
[[gnu::always_inline]] inline void storeHeaderWord(Cell& cell, Cell word) {
  Impl::store<std::memory_order_release>(cell, word);
}
[[gnu::always_inline]] inline Cell loadHeaderWord(Cell const& cell) {
  return Impl::load<std::memory_order_acquire>(cell);
}

// Sets the critical flag. Partner: the validation of the next writer. The fence keeps every later store
// behind it: without it a dead writer's half-done operation could look complete. It also keeps the next copy
// to the lookaside slot behind the last closing sequence, without which a reader of the former copy could
// take it for the value of its own slot.
[[gnu::always_inline]] inline void enterCritical(Cell& cell, Cell word) {
  Impl::store<std::memory_order_release>(cell, word);
  Impl::releaseFence();
}

// Clears it. Partner: the validation of the next writer. Without the release the flag could be seen clear
// while stores of the operation are still missing.
[[gnu::always_inline]] inline void leaveCritical(Cell& cell, Cell word) {
  Impl::store<std::memory_order_release>(cell, word);
}

// The generation, in a file of its own. Partner: readGeneration. Without the release a reader could trust the
// generation before the files that belong to it.
[[gnu::always_inline]] inline void publishGeneration(Cell& cell, Cell word) {
  Impl::store<std::memory_order_release>(cell, word);
}
[[gnu::always_inline]] inline Cell readGeneration(Cell const& cell) {
  return Impl::load<std::memory_order_acquire>(cell);
}

}  // namespace SharedWord
}  // namespace Mem
