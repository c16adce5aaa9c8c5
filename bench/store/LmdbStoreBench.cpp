// LMDB in shared memory, without any syncing: one operation a transaction, and 1000.
#include "bench/store/LmdbRecords.h"
#include "bench/store/TableBench.h"

namespace {

using namespace StoreBench;

// `batch` operations share a transaction, reads too.
template <unsigned batch>
class LmdbTable {
 public:
  LmdbTable(Directory const& directory, std::uint32_t count) {
    environment_ = openedLmdb(directory, count, std::size_t{16} << 20);
    must(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
    must(mdb_dbi_open(transaction_, nullptr, MDB_CREATE, &database_));
    settle();
    must(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_));
    mdb_txn_reset(reader_);
  }
  LmdbTable(LmdbTable const&) = delete;
  LmdbTable& operator=(LmdbTable const&) = delete;
  ~LmdbTable() {
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
    mdb_txn_abort(reader_);
    mdb_env_close(environment_);
  }

  void put(Record const& record) {
    beginWrite();
    KeyBytes key(record.key);
    MDB_val value{sizeof record.row, const_cast<Row*>(&record.row)};
    must(mdb_put(transaction_, database_, &key.value, &value, 0));
    endWrite();
  }
  void overwrite(Record const& record) { put(record); }

  bool get(Key const& key, Record& out) {
    if (read_ == 0) must(mdb_txn_renew(reader_));
    KeyBytes bytes(key);
    MDB_val value;
    bool const found = mdb_get(reader_, database_, &bytes.value, &value) == MDB_SUCCESS;
    if (found) out = recordIn(bytes.value, value);
    if (++read_ == batch) endRead();
    return found;
  }

  bool erase(Key const& key) {
    beginWrite();
    KeyBytes bytes(key);
    bool const found = mdb_del(transaction_, database_, &bytes.value, nullptr) == MDB_SUCCESS;
    endWrite();
    return found;
  }

  // In one transaction: a cursor can't be kept beyond it.
  template <class Visit>
  void forEach(Visit&& visit) {
    must(mdb_txn_renew(reader_));
    MDB_cursor* cursor;
    must(mdb_cursor_open(reader_, database_, &cursor));
    MDB_val key, value;
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
      visit(recordIn(key, value));
    }
    mdb_cursor_close(cursor);
    mdb_txn_reset(reader_);
  }

  void settle() {
    if (transaction_ != nullptr) must(mdb_txn_commit(transaction_));
    transaction_ = nullptr;
    written_ = 0;
    if (read_ != 0) endRead();
  }

  std::uint32_t size() {
    MDB_stat status;
    must(mdb_env_stat(environment_, &status));
    return static_cast<std::uint32_t>(status.ms_entries);
  }

 private:
  void beginWrite() {
    if (transaction_ == nullptr) must(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
  }
  void endWrite() {
    if (++written_ == batch) settle();
  }
  void endRead() {
    mdb_txn_reset(reader_);
    read_ = 0;
  }
  MDB_env* environment_ = nullptr;
  MDB_dbi database_ = 0;
  MDB_txn* transaction_ = nullptr;  // open for writing, or none
  MDB_txn* reader_ = nullptr;
  unsigned written_ = 0;
  unsigned read_ = 0;
};

[[maybe_unused]] bool const registered =
    registerTable<LmdbTable<1>>("lmdb_single") && registerTable<LmdbTable<1000>>("lmdb_batch");

}  // namespace
