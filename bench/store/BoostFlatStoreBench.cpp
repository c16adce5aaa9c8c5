// Boost's flat map in a mapped file under a process-shared read-write lock, growing by itself and with room
// reserved from the start.
#include "bench/store/BoostFlatMap.h"
#include "bench/store/TableBench.h"

namespace {

using namespace StoreBench;

template <bool reserved>
class BoostFlatTable : public BoostFlatMap<ReadWriteLock> {
 public:
  BoostFlatTable(Directory const& directory, std::uint32_t count) : BoostFlatMap(directory, count) {
    if (reserved) reserve(count);
  }

  void overwrite(Record const& record) { put(record); }
  void settle() {}
};

[[maybe_unused]] bool const registered = registerTable<BoostFlatTable<false>>("boost_flat") &&
                                         registerTable<BoostFlatTable<true>>("boost_flat_reserved");

}  // namespace
