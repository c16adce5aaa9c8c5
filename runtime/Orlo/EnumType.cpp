#include "runtime/Orlo/EnumType.h"

#include <algorithm>

#include "runtime/Dovel/Format.h"

namespace Orlo {

EnumType::Enumerator const& EnumType::instance(unsigned value) const {
  auto const found = std::ranges::find(enumerators_, value, &Enumerator::value);
  if (found == enumerators_.end()) throwUnknown(std::to_string(value));
  return *found;
}

EnumType::Enumerator const& EnumType::instance(std::string_view name) const {
  auto const found = std::ranges::find(enumerators_, name, &Enumerator::name);
  if (found == enumerators_.end()) throwUnknown(name);
  return *found;
}

Dovel::String EnumType::stringValue(unsigned value) const {
  auto const found = std::ranges::find(enumerators_, value, &Enumerator::value);
  return found == enumerators_.end() ? Dovel::String(std::to_string(value)) : Dovel::String(found->name);
}

void EnumType::throwUnknown(std::string_view given) const {
  std::string legal;
  for (Enumerator const& enumerator : enumerators_) {
    legal.append(legal.empty() ? "" : ", ").append(enumerator.name);
    legal.append(" (").append(std::to_string(enumerator.value)).append(")");
  }
  DOVEL_THROW(Dovel::RangeException, "EnumType", "{} has no value {}: {}", name_, given, legal);
}

}  // namespace Orlo
