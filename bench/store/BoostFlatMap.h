// Boost's flat map in a mapped file, under a lock that processes share. Each object is one mapping, of one
// thread.
//
// Boost 1.81's flat map takes an allocator with offset pointers but keeps plain ones in the map itself, so
// all processes have to map the file at one and the same address, and no process two of them at a time.
#pragma once

#include <pthread.h>
#include <sys/mman.h>

#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdlib>
#include <mutex>
#include <shared_mutex>

#include "bench/store/BoostHash.h"
#include "bench/store/Directory.h"
#include "bench/store/Workload.h"

namespace StoreBench {

class ReadWriteLock {
 public:
  ReadWriteLock() {
    pthread_rwlockattr_t attributes;
    if (pthread_rwlockattr_init(&attributes) != 0 ||
        pthread_rwlockattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) != 0 ||
        pthread_rwlock_init(&lock_, &attributes) != 0)
      std::abort();
    pthread_rwlockattr_destroy(&attributes);
  }
  ReadWriteLock(ReadWriteLock const&) = delete;
  ReadWriteLock& operator=(ReadWriteLock const&) = delete;

  void lock() { pthread_rwlock_wrlock(&lock_); }
  void lock_shared() { pthread_rwlock_rdlock(&lock_); }
  void unlock() { pthread_rwlock_unlock(&lock_); }
  void unlock_shared() { pthread_rwlock_unlock(&lock_); }

 private:
  pthread_rwlock_t lock_;
};

// Readers keep each other out too.
class SpinLock {
 public:
  SpinLock() {
    if (pthread_spin_init(&lock_, PTHREAD_PROCESS_SHARED) != 0) std::abort();
  }
  SpinLock(SpinLock const&) = delete;
  SpinLock& operator=(SpinLock const&) = delete;

  void lock() { pthread_spin_lock(&lock_); }
  void lock_shared() { lock(); }
  void unlock() { pthread_spin_unlock(&lock_); }
  void unlock_shared() { unlock(); }

 private:
  pthread_spinlock_t lock_;
};

template <class Lock>
class BoostFlatMap {
 public:
  using Segment = boost::interprocess::managed_mapped_file;
  using Allocator = boost::interprocess::allocator<std::pair<Key const, Row>, Segment::segment_manager>;
  using Map = boost::unordered_flat_map<Key, Row, BoostHash, std::equal_to<Key>, Allocator>;

  // Makes the file.
  BoostFlatMap(Directory const& directory, std::uint32_t count)
      : segment_(boost::interprocess::create_only, directory.file("table").c_str(),
                 (1u << 20) + std::size_t{count} * 512, kAddress),
        shared_(*segment_.construct<Shared>("table")(segment_.get_segment_manager())) {}
  // Opens it.
  explicit BoostFlatMap(Directory const& directory)
      : segment_(boost::interprocess::open_only, directory.file("table").c_str(), kAddress),
        shared_(*segment_.find<Shared>("table").first) {}

  // With the memory given by the kernel already: the first touch of a page costs more than many insertions.
  void reserve(std::uint32_t count) {
    shared_.map.reserve(count);
    std::size_t const used = segment_.get_size() - segment_.get_free_memory();
    if (madvise(segment_.get_address(), used, MADV_POPULATE_WRITE) != 0) std::abort();
  }

  void put(Record const& record) {
    std::lock_guard const guard(shared_.lock);
    shared_.map.insert_or_assign(record.key, record.row);
  }
  bool get(Key const& key, Record& out) {
    std::shared_lock const guard(shared_.lock);
    auto const found = shared_.map.find(key);
    if (found == shared_.map.end()) return false;
    out = {found->first, found->second};
    return true;
  }
  bool erase(Key const& key) {
    std::lock_guard const guard(shared_.lock);
    return shared_.map.erase(key) == 1;
  }
  template <class Visit>
  void forEach(Visit&& visit) {
    std::shared_lock const guard(shared_.lock);
    for (auto const& [key, row] : shared_.map) visit(Record{key, row});
  }
  std::uint32_t size() { return static_cast<std::uint32_t>(shared_.map.size()); }

 private:
  // Far from where the kernel puts mappings by itself.
  static inline void* const kAddress = reinterpret_cast<void*>(std::uintptr_t{1} << 40);

  struct Shared {
    Lock lock;
    Map map;
    explicit Shared(Segment::segment_manager* manager) : map(Allocator(manager)) {}
  };

  Segment segment_;
  Shared& shared_;
};

}  // namespace StoreBench
