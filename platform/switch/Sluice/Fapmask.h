// A set of FAPs. A plain value; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "platform/switch/Sluice/FapId.h"

namespace Sluice {

class FapIdList;

// 256 bits, of which the numbers of FapId are legal members. A mask made from raw words may hold others: a
// walk that comes to one throws the Dovel::RangeException of FapId.
class Fapmask {
 public:
  using Words = std::array<std::uint64_t, 4>;

  constexpr Fapmask() = default;
  constexpr explicit Fapmask(Words const& words) : words_(words) {}

  void fapIdIs(FapId fap, bool member);
  bool fapId(FapId fap) const;

  // The members in ascending order.
  FapIdList fapIds() const;
  // The member after the given one, or null at the end. A walk starts from null.
  FapId nextFapId(FapId fap) const;

  Fapmask& operator&=(Fapmask const& other);
  Fapmask& operator|=(Fapmask const& other);
  constexpr Words const& words() const { return words_; }

  friend bool isEq(Fapmask const& a, Fapmask const& b) { return a == b; }
  friend bool operator==(Fapmask const& a, Fapmask const& b) = default;

 private:
  friend class FapIdList;
  // The lowest member of that number or above; null if there is none.
  FapId firstFrom(unsigned number) const;

  Words words_{};
};
static_assert(sizeof(Fapmask) == 32);

// The members of a mask as they were when the list was taken.
class FapIdList {
 public:
  class Iterator {
   public:
    using value_type = FapId;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    Iterator(FapIdList const& list, std::size_t left);
    FapId operator*() const { return at_; }
    Iterator& operator++();
    Iterator operator++(int);
    friend bool operator==(Iterator const& a, Iterator const& b) { return a.left_ == b.left_; }

   private:
    FapIdList const* list_ = nullptr;
    std::size_t left_ = 0;
    FapId at_;
  };

  using value_type = FapId;
  using const_iterator = Iterator;

  explicit FapIdList(Fapmask const& mask);

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Iterator begin() const { return {*this, size_}; }
  Iterator end() const { return {*this, 0}; }

 private:
  Fapmask mask_;
  std::size_t size_ = 0;
};

// "{0,3,5-7}", ranges for three members and more; "{}" for the empty set. Raw members print as they are.
Dovel::String valueToStrep(Fapmask const& mask);
std::ostream& operator<<(std::ostream& out, Fapmask const& mask);

}  // namespace Sluice

template <>
struct fmt::formatter<Sluice::Fapmask> : Dovel::PlainFormatter {
  auto format(Sluice::Fapmask const& mask, fmt::format_context& context) const {
    return write(valueToStrep(mask), context);
  }
};
