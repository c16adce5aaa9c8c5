// The catalogue of tables as JSON.
#pragma once

#include <string>
#include <vector>

#include "platform/switch/TableDescription.h"

namespace Host {

// One object {"tables":[...]}, indented, the tables in the given order and their fields in catalogue order.
std::string catalogueJson(std::vector<LoamAsicUtils::TableDescription const*> const& tables);

}  // namespace Host
