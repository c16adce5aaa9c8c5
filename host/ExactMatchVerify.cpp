#include "host/ExactMatchVerify.h"

#include <algorithm>
#include <unordered_map>

#include "host/FieldValues.h"
#include "platform/switch/LoamAsicUtils/EmRead.h"
#include "runtime/Detail/CopyBits.h"

namespace Host {
namespace {

using LoamAsicUtils::FieldDescription;
using LoamAsicUtils::KeyImage;
using Row = std::vector<std::uint8_t>;

class EntryComparison {
 public:
  EntryComparison(ControlPlane& plane, LiveTable const& live, LoamAsicUtils::HwShadowBase const& shadow,
                  Sluice::FapId fap, Verdict& verdict)
      : plane_(plane), live_(live), shadow_(shadow), fap_(fap), verdict_(verdict) {}

  void run() {
    Sluice::SendOutcome sent;
    bool const complete = LoamAsicUtils::readEntries(
        plane_.channel(), *live_.exactMatch(), fap_, sent, [&](std::span<std::uint8_t const> entry) {
          found_.emplace(live_.access().keyOfData(entry), Row(entry.begin(), entry.end()));
        });
    if (!complete) return unread();
    live_.access().forEachEntry(shadow_, [&](KeyImage const& key, std::uint32_t, auto const& wanted) {
      if (live_.access().stored(shadow_, key)) compare(key, Row(wanted.begin(), wanted.end()));
    });
    for (auto const& [key, entry] : found_) {
      ++verdict_.rows;
      add(refusalOr(key, RowState::stale), key, {}, entry);
    }
  }

 private:
  // What is found is taken out, so that what is left belongs nowhere.
  void compare(KeyImage const& key, Row const& wanted) {
    ++verdict_.rows;
    auto const taken = found_.extract(key);
    if (taken.empty()) return add(refusalOr(key, RowState::missing), key, wanted, {});
    Row const found = comparable(taken.mapped(), wanted);
    if (found == wanted) return;
    bool const onlyMarked = withoutMark(found, wanted) == wanted;
    add(onlyMarked ? RowState::marked : refusalOr(key, RowState::different), key, wanted, found);
  }
  // A table that can't be read is known by its stored keys.
  void unread() {
    std::size_t const before = verdict_.bad.size();
    live_.access().forEachEntry(shadow_, [&](KeyImage const& key, std::uint32_t, auto const& wanted) {
      ++verdict_.rows;
      add(RowState::unread, key, Row(wanted.begin(), wanted.end()), {});
    });
    if (verdict_.bad.size() != before) return;
    ++verdict_.rows;
    add(RowState::unread, KeyImage(), {}, {});
    verdict_.bad.back().key.clear();
  }

  // With the fields that don't count as they are wanted.
  Row comparable(Row found, Row const& wanted) const {
    for (std::string_view const name : {"command", "wayIndex", "prefixNum", "address", "hits", "found"})
      take(found, wanted, name);
    return found;
  }
  Row withoutMark(Row found, Row const& wanted) const {
    take(found, wanted, "sweepBit");
    return found;
  }
  void take(Row& to, Row const& from, std::string_view name) const {
    auto const& fields = live_.description->fields;
    auto const field = std::ranges::find(fields, name, &FieldDescription::name);
    if (field == fields.end()) return;
    Detail::copyBits(to.data(), to.size(), from.data(), from.size(), field->high - field->low + 1U,
                     field->low, field->low);
  }

  RowState refusalOr(KeyImage const& key, RowState state) const {
    auto const& refusals = plane_.writer().refusals(shadow_);
    auto const refusal = refusals.find(key);
    return refusal != refusals.end() && refusal->second.fapmask.fapId(fap_) ? stateOf(refusal->second)
                                                                            : state;
  }
  void add(RowState state, KeyImage const& key, Row wanted, Row found) {
    ++verdict_.counts[static_cast<std::size_t>(state)];
    verdict_.bad.push_back({state, fap_, &live_, shadow_.bcmGroupAddrInfo()->firstMemory().name().view(),
                            live_.access().keyMembers(key), 0, std::move(wanted), std::move(found)});
  }

  ControlPlane& plane_;
  LiveTable const& live_;
  LoamAsicUtils::HwShadowBase const& shadow_;
  Sluice::FapId fap_;
  Verdict& verdict_;
  std::unordered_map<KeyImage, Row, LoamAsicUtils::KeyImageHash> found_;
};

}  // namespace

void compareEntries(ControlPlane& plane, LiveTable const& live, LoamAsicUtils::HwShadowBase const& shadow,
                    Sluice::Fapmask const& faps, Verdict& verdict) {
  for (Sluice::FapId const fap : faps.fapIds()) EntryComparison(plane, live, shadow, fap, verdict).run();
}

}  // namespace Host
