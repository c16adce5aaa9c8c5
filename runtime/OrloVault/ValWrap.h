// A record as a store keeps it: the record itself, and a name for its key that all stores know. It adds no
// bytes. A plain value.
#pragma once

#include <type_traits>

namespace OrloVault {

// keyOf is the member function of Record, or of a base of it, that returns the key. KeyByValue: it makes the
// key anew, instead of returning the one in the record.
template <class Record, class Key, auto keyOf, bool KeyByValue>
class ValWrap : public Record {
 public:
  using RecordType = Record;
  using KeyType = Key;

  ValWrap() = default;
  ValWrap(Record const& record) : Record(record) {}

  std::conditional_t<KeyByValue, Key, Key const&> fwkKey() const {
    return (static_cast<Record const&>(*this).*keyOf)();
  }
};

}  // namespace OrloVault
