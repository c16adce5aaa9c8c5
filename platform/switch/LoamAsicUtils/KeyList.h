// Keys in the order in which they first came, each once: what is to be sent of a table. Not for several
// threads.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/switch/LoamAsicUtils/TableAccess.h"

namespace LoamAsicUtils {

// Takes memory only when it grows past its largest size so far.
class KeyList {
 public:
  // False where the key is there already.
  bool insert(KeyImage const& key) {
    if (keys_.size() * 2 >= places_.size()) grow();
    std::uint32_t& place = placeOf(key);
    if (place != kFree) return false;
    place = static_cast<std::uint32_t>(keys_.size());
    keys_.push_back(key);
    return true;
  }
  void clear() {
    if (keys_.empty()) return;
    std::fill(places_.begin(), places_.end(), kFree);
    keys_.clear();
  }

  std::vector<KeyImage> const& keys() const { return keys_; }
  std::size_t size() const { return keys_.size(); }
  bool empty() const { return keys_.empty(); }

  void swap(KeyList& other) noexcept {
    keys_.swap(other.keys_);
    places_.swap(other.places_);
  }

 private:
  static constexpr std::uint32_t kFree = ~std::uint32_t{0};
  static constexpr std::size_t kFirstPlaces = 64;

  // Where the key stands, or the free place where it would.
  std::uint32_t& placeOf(KeyImage const& key) {
    std::size_t const mask = places_.size() - 1;
    std::size_t at = KeyImageHash()(key) & mask;
    while (places_[at] != kFree && keys_[places_[at]] != key) at = (at + 1) & mask;
    return places_[at];
  }
  void grow() {
    places_.assign(places_.empty() ? kFirstPlaces : places_.size() * 2, kFree);
    for (std::uint32_t number = 0; number < keys_.size(); ++number) placeOf(keys_[number]) = number;
  }

  std::vector<KeyImage> keys_;
  std::vector<std::uint32_t> places_;  // numbers of keys, by hash; a power of two of them, at most half taken
};

}  // namespace LoamAsicUtils
