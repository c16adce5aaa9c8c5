// The slot table as its writer sees it, with the type of its records. One thread.
#pragma once

#include "Vault/Slot.h"
#include "Vault/SlotWriterCommon.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

template <class Ops>
class SlotWriterTable : public SlotWriterTableCommon {
 public:
  using Value = typename Ops::Value;
  using SlotType = Slot<Ops::valueSize>;
  static constexpr SlotShape kShape = SlotType::kShape;

  using SlotWriterTableCommon::SlotWriterTableCommon;

  static Setup setup() {
    return {.shape = kShape,
            .marshalledSize = Ops::valueSize,
            .typeName = Ops::typeName(),
            .defaultValue = &Ops::ValueOps::type_default_};
  }

  // The only way to a slot: an id out of range throws Dovel::CorruptionDetectedException.
  [[gnu::always_inline]] SlotType operator[](std::uint32_t id) const {
    if (id >= indexLimit_) [[unlikely]]
      throwOutOfRange(id);
    return SlotType(slots_ + std::size_t{id} * kShape.slotCells());
  }
  // Asks for a slot whose id a link gives, which need not be one.
  void prefetch(std::uint32_t id) const { __builtin_prefetch(slots_ + std::size_t{id} * kShape.slotCells()); }
  SlotType lookaside() const { return SlotType(header().lookasideCells()); }

  // Gives a slot new contents, of which readers see either the old or the new in whole; it is occupied then.
  [[gnu::always_inline]] void update(SlotType slot, Value const& value) const {
    SlotLink link = slot.link();
    if (link.occupied()) lookaside().contentsAre(slot);
    link.sequence += SlotLink::kLookaside;
    Mem::SharedWord::openValue(slot.linkCell(), link.word());
    slot.valueIs(&value);
    link.sequence = (link.sequence + SlotLink::kLookaside) | SlotLink::kOccupied;
    Mem::SharedWord::closeValue(slot.linkCell(), link.word());
  }

  // Copies an occupied slot to the head of the free list, below it, and returns the new id. What leads to the
  // old slot is the caller's to change.
  std::uint32_t move(std::uint32_t fromSlotId) const {
    std::uint32_t const toSlotId = header().freeList();
    DOVEL_ASSERT(toSlotId < fromSlotId, "SlotWriterTable",
                 "should always move entries to lower section fromSlotId:{} toSlotId:{}", fromSlotId,
                 toSlotId);
    DOVEL_ASSERT(toSlotId != SlotLink::kNil, "SlotWriterTable", "not valid toSlotId:{}", toSlotId);
    SlotType const from = (*this)[fromSlotId];
    SlotType const to = (*this)[toSlotId];
    SlotLink link = to.link();
    to.hashIs(from.hash());
    header().freeListIs(link.target());
    to.valueIs(from);
    if (!link.occupied()) link.sequence = (link.sequence + SlotLink::kChange) | SlotLink::kOccupied;
    Mem::SharedWord::closeValue(to.linkCell(), link.word());
    link = link.ledTo(from.link().target());
    Mem::SharedWord::publishLink(to.linkCell(), link.word());
    link.sequence += SlotLink::kChange;
    link.next = link.target() | (from.link().next & SlotLink::kFlag);
    Mem::SharedWord::publishLink(to.linkCell(), link.word());
    DOVEL_TRACE(debugHandler(), 7, "SlotWriterTable", "fromSlotId:{} toSlotId:{}", fromSlotId, toSlotId);
    return toSlotId;
  }
};

}  // namespace Vault
