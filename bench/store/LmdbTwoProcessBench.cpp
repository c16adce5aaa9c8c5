// LMDB in two processes: each write is a transaction, and each look-up renews its own.
#include <utility>

#include "bench/store/LmdbRecords.h"
#include "bench/store/TwoProcessBench.h"

namespace {

using namespace StoreBench;

// A reader that isn't running for a while may be in the middle of its look-up.
constexpr std::size_t kRoom = std::size_t{1} << 30;

class LmdbWriter {
 public:
  LmdbWriter(Directory const& directory, std::uint32_t count)
      : environment_(openedLmdb(directory, count, kRoom)) {
    must(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
    must(mdb_dbi_open(transaction_, nullptr, MDB_CREATE, &database_));
  }
  LmdbWriter(LmdbWriter const&) = delete;
  LmdbWriter& operator=(LmdbWriter const&) = delete;
  ~LmdbWriter() {
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
    mdb_env_close(environment_);
  }

  // All in one transaction: this isn't measured.
  void fill(Target const& target, Record const& record) { put(target, record); }
  void filled() { commit(); }
  void overwrite(Target const& target, Record const& record) {
    must(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
    put(target, record);
    commit();
  }

 private:
  void commit() { must(mdb_txn_commit(std::exchange(transaction_, nullptr))); }
  void put(Target const&, Record const& record) {
    KeyBytes key(record.key);
    MDB_val value{sizeof record.row, const_cast<Row*>(&record.row)};
    must(mdb_put(transaction_, database_, &key.value, &value, 0));
  }

  MDB_env* environment_;
  MDB_txn* transaction_ = nullptr;
  MDB_dbi database_ = 0;
};

class LmdbReader {
 public:
  LmdbReader(Directory const& directory, std::uint32_t count)
      : environment_(openedLmdb(directory, count, kRoom)) {
    must(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction_));
    must(mdb_dbi_open(transaction_, nullptr, 0, &database_));
    mdb_txn_reset(transaction_);
  }
  LmdbReader(LmdbReader const&) = delete;
  LmdbReader& operator=(LmdbReader const&) = delete;
  ~LmdbReader() {
    mdb_txn_abort(transaction_);
    mdb_env_close(environment_);
  }

  bool get(Target const& target, Record& out) {
    must(mdb_txn_renew(transaction_));
    Key const key = target.key();
    KeyBytes bytes(key);
    MDB_val value;
    bool const found = mdb_get(transaction_, database_, &bytes.value, &value) == MDB_SUCCESS;
    if (found) out = recordIn(bytes.value, value);
    mdb_txn_reset(transaction_);
    return found;
  }

 private:
  MDB_env* environment_;
  MDB_txn* transaction_ = nullptr;
  MDB_dbi database_ = 0;
};

struct Lmdb {
  using Writer = LmdbWriter;
  using Reader = LmdbReader;
};

[[maybe_unused]] bool const registered = registerKind<Lmdb>("lmdb");

}  // namespace
