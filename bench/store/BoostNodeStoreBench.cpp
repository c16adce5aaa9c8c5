// Boost's node-based map in a mapped file, with the allocator of Boost.Interprocess, under a sharable mutex.
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>

#include "bench/store/BoostHash.h"
#include "bench/store/TableBench.h"

namespace {

using namespace StoreBench;
namespace ipc = boost::interprocess;

class BoostNodeTable {
 public:
  // The file has its final size from the start, as it can't grow while it is mapped; it is sparse.
  BoostNodeTable(Directory const& directory, std::uint32_t count)
      : segment_(ipc::create_only, directory.file("table").c_str(), (1u << 20) + std::size_t{count} * 256),
        shared_(*segment_.construct<Shared>("table")(segment_.get_segment_manager())) {}

  void put(Record const& record) {
    ipc::scoped_lock<ipc::interprocess_sharable_mutex> const lock(shared_.mutex);
    shared_.map.insert_or_assign(record.key, record.row);
  }
  void overwrite(Record const& record) { put(record); }

  bool get(Key const& key, Record& out) {
    ipc::sharable_lock<ipc::interprocess_sharable_mutex> const lock(shared_.mutex);
    auto const found = shared_.map.find(key);
    if (found == shared_.map.end()) return false;
    out = {found->first, found->second};
    return true;
  }

  bool erase(Key const& key) {
    ipc::scoped_lock<ipc::interprocess_sharable_mutex> const lock(shared_.mutex);
    return shared_.map.erase(key) == 1;
  }

  template <class Visit>
  void forEach(Visit&& visit) {
    ipc::sharable_lock<ipc::interprocess_sharable_mutex> const lock(shared_.mutex);
    for (auto const& [key, row] : shared_.map) visit(Record{key, row});
  }

  void settle() {}
  std::uint32_t size() { return static_cast<std::uint32_t>(shared_.map.size()); }

 private:
  // The map's own lock covers the allocator. Boost's pooling node allocator would be the slower choice: the
  // map makes a new copy of it for each node, and each copy looks its pool up by name.
  using Segment =
      ipc::basic_managed_mapped_file<char, ipc::rbtree_best_fit<ipc::null_mutex_family>, ipc::iset_index>;
  using Allocator = ipc::allocator<std::pair<Key const, Row>, Segment::segment_manager>;
  using Map = boost::unordered_map<Key, Row, BoostHash, std::equal_to<Key>, Allocator>;

  struct Shared {
    ipc::interprocess_sharable_mutex mutex;
    Map map;
    explicit Shared(Segment::segment_manager* manager) : map(Allocator(manager)) {}
  };

  Segment segment_;
  Shared& shared_;
};

[[maybe_unused]] bool const registered = registerTable<BoostNodeTable>("boost_node");

}  // namespace
