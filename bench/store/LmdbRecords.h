// Records of the benchmarks as LMDB keeps them. One thread.
#pragma once

#include <lmdb.h>

#include <cstring>
#include <stdexcept>

#include "bench/store/Directory.h"
#include "bench/store/Workload.h"

namespace StoreBench {

inline int must(int result) {
  if (result != MDB_SUCCESS) throw std::runtime_error(mdb_strerror(result));
  return result;
}

// The first bytes of the record's key: the label and the bit after it.
struct KeyBytes {
  static constexpr std::size_t kSize = 5;
  MDB_val value;
  explicit KeyBytes(Key const& key) : value{kSize, const_cast<Key*>(&key)} {}
};

inline Record recordIn(MDB_val const& key, MDB_val const& value) {
  Record record{};
  std::memcpy(static_cast<void*>(&record.key), key.mv_data, KeyBytes::kSize);
  std::memcpy(record.row.data(), value.mv_data, sizeof record.row);
  return record;
}

// Never more than once in a process for one directory. `room` is for the pages that a reader keeps from being
// used anew.
inline MDB_env* openedLmdb(Directory const& directory, std::uint32_t count, std::size_t room) {
  MDB_env* environment = nullptr;
  must(mdb_env_create(&environment));
  must(mdb_env_set_mapsize(environment, room + std::size_t{count} * 512));
  must(mdb_env_open(environment, directory.path().c_str(), MDB_NOSYNC | MDB_WRITEMAP | MDB_NOMETASYNC, 0644));
  return environment;
}

}  // namespace StoreBench
