#include "tests/Vault/TortureHistory.h"

#include <fmt/format.h>

namespace Torture {

namespace {

// The same for every way of getting at a record.
std::string judge(char const* what, Version version, Version oldest, Version begun) {
  if (!isPresent(version)) return fmt::format("{} version {}, which was never a record", what, version);
  if (version < oldest)
    return fmt::format("{} version {}, though {} had been current before", what, version, oldest);
  if (version > begun) return fmt::format("{} version {}, of which only {} was begun", what, version, begun);
  return {};
}

}  // namespace

Version KeyHistory::begin(bool present) {
  Version const version = following(begun_, present);
  if (!present) removal_ = version;
  begun_ = version;
  return version;
}

void KeyHistory::beginWipe() {
  Version const version = following(begun_, false);
  wipe_ = version;
  begun_ = version;
}

std::string KeyHistory::recovered(Version found, bool mayBeLost) {
  if (found == 0) {
    bool const isAbsent = !isPresent(oldest()) || removal_ > oldest();
    if (!isAbsent && !mayBeLost)
      return fmt::format("version {} is lost, though the table was not wiped", oldest());
    acknowledged_ = begun_.load();
    return {};
  }
  std::string trouble = judge("a new writer found", found, oldest(), begun_);
  acknowledged_ = found;
  // What was begun and never came justifies no miss from here on. What lies before `found` may still do so
  // for a question that was asked earlier.
  if (removal_ > found) removal_ = found - 1;
  wipe_ = found - 1;
  return trouble;
}

void KeyHistory::told(Version version) {
  Version before = told_;
  while (before < version && !told_.compare_exchange_weak(before, version)) {
  }
}

std::string Question::found(Version version) {
  std::string trouble = judge("found", version, oldest_, history_.begun());
  if (trouble.empty()) history_.told(version);
  return trouble;
}

std::string Question::foundInSlot(Version version) {
  return judge("found in its slot", version, acknowledged_, history_.begun());
}

std::string Question::missed() {
  if (!isPresent(oldest_)) return {};
  Version const absence = history_.absence();
  if (absence <= oldest_)
    return fmt::format("missed, though version {} was current and no removal begun since {}", oldest_,
                       absence);
  // One operation is under way at a time: where this one was begun before the question, it is what was seen.
  if (absence == absence_) history_.told(absence);
  return {};
}

Walk::Walk(std::span<KeyHistory> keys) : keys_(keys), returned_(keys.size()) {
  oldest_.reserve(keys.size());
  for (KeyHistory const& key : keys) oldest_.push_back(key.oldest());
}

std::string Walk::returned(std::uint32_t key, Place place, Version version) {
  if (std::exchange(any_, true) && place <= last_)
    return fmt::format("walked to key {} at {:x}, which is not behind {:x}", key, place.first, last_.first);
  last_ = place;
  if (key >= keys_.size()) return fmt::format("walked to key {}, which was never written", key);
  returned_[key] = true;
  std::string trouble = judge("walked to", version, oldest_[key], keys_[key].begun());
  if (trouble.empty()) keys_[key].told(version);
  return trouble;
}

std::string Walk::ended() {
  for (std::size_t key = 0; key < keys_.size(); ++key) {
    if (returned_[key] || !isPresent(oldest_[key]) || keys_[key].absence() > oldest_[key]) continue;
    return fmt::format("walked past key {} of version {}, which was there throughout", key, oldest_[key]);
  }
  return {};
}

}  // namespace Torture
