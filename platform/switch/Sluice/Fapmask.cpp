#include "platform/switch/Sluice/Fapmask.h"

#include <bit>
#include <string>

namespace Sluice {
namespace {

constexpr unsigned kBits = 256;

// The lowest bit that is set at `from` or above; kBits if none is.
unsigned nextBit(Fapmask::Words const& words, unsigned from) {
  for (unsigned word = from / 64; word < words.size(); ++word) {
    std::uint64_t const rest = word == from / 64 ? words[word] >> from % 64 << from % 64 : words[word];
    if (rest != 0) return word * 64 + static_cast<unsigned>(std::countr_zero(rest));
  }
  return kBits;
}

unsigned nextGap(Fapmask::Words const& words, unsigned from) {
  while (from < kBits && (words[from / 64] >> from % 64 & 1) != 0) ++from;
  return from;
}

}  // namespace

void Fapmask::fapIdIs(FapId fap, bool member) {
  std::uint64_t const bit = std::uint64_t{1} << fap.value() % 64;
  if (member) {
    words_[fap.value() / 64] |= bit;
  } else {
    words_[fap.value() / 64] &= ~bit;
  }
}

bool Fapmask::fapId(FapId fap) const { return (words_[fap.value() / 64] >> fap.value() % 64 & 1) != 0; }

FapIdList Fapmask::fapIds() const { return FapIdList(*this); }

FapId Fapmask::nextFapId(FapId fap) const { return firstFrom(fap.isNull() ? 0 : fap.value() + 1U); }

FapId Fapmask::firstFrom(unsigned number) const {
  unsigned const next = nextBit(words_, number);
  return next == kBits ? FapId::null() : FapId(next);
}

Fapmask& Fapmask::operator&=(Fapmask const& other) {
  for (std::size_t word = 0; word < words_.size(); ++word) words_[word] &= other.words_[word];
  return *this;
}

Fapmask& Fapmask::operator|=(Fapmask const& other) {
  for (std::size_t word = 0; word < words_.size(); ++word) words_[word] |= other.words_[word];
  return *this;
}

FapIdList::FapIdList(Fapmask const& mask) : mask_(mask) {
  for (std::uint64_t word : mask.words()) size_ += static_cast<std::size_t>(std::popcount(word));
}

FapIdList::Iterator::Iterator(FapIdList const& list, std::size_t left) : list_(&list), left_(left) {
  if (left_ != 0) at_ = list.mask_.firstFrom(0);
}

FapIdList::Iterator& FapIdList::Iterator::operator++() {
  if (--left_ != 0) at_ = list_->mask_.firstFrom(at_.value() + 1U);
  return *this;
}

FapIdList::Iterator FapIdList::Iterator::operator++(int) {
  Iterator const before = *this;
  ++*this;
  return before;
}

Dovel::String valueToStrep(Fapmask const& mask) {
  std::string text = "{";
  for (unsigned first = nextBit(mask.words(), 0); first < kBits;) {
    unsigned const gap = nextGap(mask.words(), first);
    unsigned const last = gap - first < 3 ? first : gap - 1;
    if (text.size() > 1) text += ',';
    text += std::to_string(first);
    if (last != first) text.append("-").append(std::to_string(last));
    first = last + 1 < kBits ? nextBit(mask.words(), last + 1) : kBits;
  }
  return text + '}';
}

std::ostream& operator<<(std::ostream& out, Fapmask const& mask) { return out << valueToStrep(mask); }

}  // namespace Sluice
