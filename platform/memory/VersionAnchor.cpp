#include "platform/memory/VersionAnchor.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Mem {
namespace {

// In place of one that was cut off.
constexpr Cell kGone = 0;

}  // namespace

void VersionAnchor::assertNotDefaultConstructed() const {
  DOVEL_ASSERT(offset != kDefaultOffset, "VersionAnchor", "the anchor marks no value");
}

VersionAnchor LastValue::anchor(std::byte const* base) const {
  if (cell_ == nullptr) return {};
  if (cell_ == &kGone) return {version_, VersionAnchor::kInvalidOffset, base};
  return VersionAnchor::at(version_, base, offsetFrom(base));
}

void LastValue::rebase(std::byte const* base, std::byte const* newBase, std::uint64_t newSize) {
  if (cell_ == nullptr || cell_ == &kGone) return;
  std::uint64_t const offset = offsetFrom(base);
  cell_ = offset + sizeof(Cell) > newSize ? &kGone : reinterpret_cast<Cell const*>(newBase + offset);
}

std::uint64_t LastValue::offsetFrom(std::byte const* base) const {
  return static_cast<std::uint64_t>(reinterpret_cast<std::byte const*>(cell_) - base);
}

void throwVersionMismatch(VersionAnchor const& anchor) {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "VersionAnchor",
              "the value at offset {} has changed since version {}", anchor.offset, anchor.version);
}

}  // namespace Mem
