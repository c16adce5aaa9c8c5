// Boost's flat map in two processes, under a spinlock and under a read-write lock.
#include "bench/store/BoostFlatMap.h"
#include "bench/store/TwoProcessBench.h"

namespace {

using namespace StoreBench;

template <class Lock>
struct BoostFlat {
  class Writer : BoostFlatMap<Lock> {
   public:
    Writer(Directory const& directory, std::uint32_t count) : BoostFlatMap<Lock>(directory, count) {}
    void fill(Target const&, Record const& record) { this->put(record); }
    void filled() {}
    void overwrite(Target const&, Record const& record) { this->put(record); }
  };
  class Reader : BoostFlatMap<Lock> {
   public:
    Reader(Directory const& directory, std::uint32_t) : BoostFlatMap<Lock>(directory) {}
    bool get(Target const& target, Record& out) { return BoostFlatMap<Lock>::get(target.key(), out); }
  };
};

[[maybe_unused]] bool const registered = registerKind<BoostFlat<SpinLock>>("boost_flat_spinlock") &&
                                         registerKind<BoostFlat<ReadWriteLock>>("boost_flat_rwlock");

}  // namespace
