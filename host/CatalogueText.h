// The catalogue of tables as text for a person.
#pragma once

#include <string>
#include <vector>

#include "platform/switch/TableDescription.h"

namespace Host {

// One line a table, under a heading; lines are cut to the given number of columns, 0 for no limit.
std::vector<std::string> catalogueLines(std::vector<LoamAsicUtils::TableDescription const*> const& tables,
                                        unsigned columns);

// All about one table: names, key, memories, presets, and its fields as a list and on the bit ruler of the
// row.
std::vector<std::string> tableLines(LoamAsicUtils::TableDescription const& table);

}  // namespace Host
