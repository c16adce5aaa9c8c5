#include "platform/switch/LoamAsicUtils/HwTableKey.h"

#include <string_view>

#include "runtime/Orlo/Hash.h"

namespace LoamAsicUtils {
namespace {

// Up to eight characters as one number, the first in the lowest byte.
std::uint64_t packed(std::string_view characters) {
  std::uint64_t number = 0;
  for (std::size_t at = 0; at < characters.size(); ++at)
    number |= std::uint64_t{static_cast<unsigned char>(characters[at])} << 8 * at;
  return number;
}

}  // namespace

std::uint32_t HwTableKey::hash(unsigned int seed) const {
  Orlo::Hash state(seed);
  std::string_view const name = tableName_;
  for (std::size_t at = 0; at < name.size(); at += 8) state.hashMix(packed(name.substr(at, 8)));
  state.hashMix(std::uint64_t{name.size()});
  state.hashMix(static_cast<std::uint32_t>(fapRevision_.revMajor()));
  state.hashMix(static_cast<std::uint32_t>(fapRevision_.revMinor()));
  return state.result();
}

Dovel::String HwTableKey::toString() const {
  return Dovel::String(tableName_).append("/").append(fapRevision_.shortForm());
}

std::size_t HwTableKeyHash::operator()(HwTableKey const& key) const {
  return key.hash(Orlo::HashHelper::hashSeed32() ^ HwTableKey::kCollectionConstant);
}

}  // namespace LoamAsicUtils
