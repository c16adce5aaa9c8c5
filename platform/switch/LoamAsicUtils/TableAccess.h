// What may be done with a table of which only the name is known: the way of table writers and hosts, which
// load a bundle and have not seen its classes. One object a table, registered with the table's description;
// it lives as long as its bundle. The thread rule is the table's.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "OrloVault/Entity.h"
#include "platform/switch/Asic/LogEntryWrapperBase.h"
#include "platform/switch/LoamAsicUtils/HwCommonTableBase.h"

namespace LoamAsicUtils {

// The bytes of a key of any table, zero past its end.
struct KeyImage {
  std::array<std::uint64_t, 2> words{};

  friend bool operator==(KeyImage const&, KeyImage const&) = default;
};

struct KeyImageHash {
  std::size_t operator()(KeyImage const& key) const {
    std::uint64_t const mixed = (key.words[0] ^ key.words[1] * 0x9e3779b97f4a7c15) * 0xff51afd7ed558ccd;
    return mixed ^ mixed >> 32;
  }
};

// An entry without its key. `view` counts only for tables with views.
struct RowImage {
  std::uint32_t view = 0;
  std::vector<std::uint8_t> data;  // as the chip stores it
};

class TableAccess {
 public:
  using Visit = std::function<void(KeyImage const& key, std::uint32_t view, std::span<std::uint8_t const>)>;

  TableAccess() = default;
  TableAccess(TableAccess const&) = delete;
  TableAccess& operator=(TableAccess const&) = delete;

  // Makes a table that is not in its manager's collection.
  virtual Dovel::Ptr<HwCommonShadowTableBase> make(HwTableKey const& key,
                                                   Dovel::Ptr<TableManager> const& manager) const = 0;

  // A key from its members, in the order of the description. Throws Dovel::RangeException for a member that
  // is out of its range.
  virtual KeyImage keyOf(std::span<std::uint64_t const> members) const = 0;
  virtual std::vector<std::uint64_t> keyMembers(KeyImage const& key) const = 0;
  // For exact-match tables: the key that is in an entry's data, as the chip has it. The zero key for others.
  virtual KeyImage keyOfData(std::span<std::uint8_t const> data) const = 0;
  // The key that a publication of the table's entries points to.
  virtual KeyImage publishedKey(void const* key) const = 0;

  // The table's own operations; they throw what those do.
  virtual void setEntry(HwCommonShadowTableBase& table, HwShadowKey shadow, KeyImage const& key,
                        std::uint32_t view, std::span<std::uint8_t const> data) const = 0;
  virtual void deleteEntry(HwCommonShadowTableBase& table, HwShadowKey shadow, KeyImage const& key) const = 0;
  virtual RowImage getEntry(HwCommonShadowTableBase const& table, HwShadowKey shadow,
                            KeyImage const& key) const = 0;
  virtual Dovel::Ptr<Sluice::SchanCmds> schanCmds(
      HwCommonShadowTableBase const& table, HwShadowKey shadow, KeyImage const& key,
      Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const = 0;

  // The store of a shadow as an entity, which publishes its keys; null where its mount has failed.
  virtual OrloVault::Entity* storage(HwShadowBase& shadow) const = 0;
  // Whether the shadow has a store that is attached.
  virtual bool mounted(HwShadowBase const& shadow) const = 0;
  // Lets go of the store and leaves its entries in it.
  virtual void unmount(HwShadowBase& shadow) const = 0;
  // Whether the shadow has an entry of the key that the chip is to hold: one whose deletion is still to be
  // sent doesn't count.
  virtual bool stored(HwShadowBase const& shadow, KeyImage const& key) const = 0;
  virtual std::uint32_t storedCount(HwShadowBase const& shadow) const = 0;
  // The entries in the order of the store. `visit` must not change the shadow.
  virtual void forEachEntry(HwShadowBase const& shadow, Visit const& visit) const = 0;

 protected:
  ~TableAccess() = default;
};

}  // namespace LoamAsicUtils
