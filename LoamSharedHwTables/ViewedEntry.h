// The row of a table whose bytes have several meanings: viewT says by which view class they are read. See
// EntryRecord.h for the thread rule.
#pragma once

#include "LoamSharedHwTables/EntryRecord.h"

namespace LoamSharedHwTables {

template <class Traits, class Key, class View>
class ViewedEntry : public EntryRecord<Traits, Key> {
 public:
  View viewT() const { return viewT_; }
  void viewTIs(View view) { viewT_ = view; }

  // Both point to entries of this type.
  static bool isEq(void const* a, void const* b) {
    return a == b || *static_cast<ViewedEntry const*>(a) == *static_cast<ViewedEntry const*>(b);
  }
  friend bool operator==(ViewedEntry const& a, ViewedEntry const& b) {
    return a.viewT_ == b.viewT_ &&
           static_cast<EntryRecord<Traits, Key> const&>(a) == static_cast<EntryRecord<Traits, Key> const&>(b);
  }

 protected:
  ViewedEntry() = default;
  explicit ViewedEntry(Key const& entryKey) : EntryRecord<Traits, Key>(entryKey) {}

 private:
  View viewT_ = View{};
};

}  // namespace LoamSharedHwTables
