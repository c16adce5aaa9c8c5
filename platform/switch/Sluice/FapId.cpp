#include "platform/switch/Sluice/FapId.h"

#include "runtime/Dovel/Exception.h"

namespace Sluice {

void Impl::throwFapIdOutOfRange() {
  Dovel::RangeException::throwException(
      "Sluice::FapId::value < Sluice::FapId::min or > Sluice::FapId::null not allowed");
}

Dovel::String valueToStrep(FapId fap) { return std::to_string(fap.value()); }

}  // namespace Sluice
