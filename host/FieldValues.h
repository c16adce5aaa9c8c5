// Keys and rows of tables as people write them: members and fields by name, numbers or hex texts. Functions
// without state; any thread. What is wrong with an input throws InputError, naming the field, its value and
// the legal range.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/InputError.h"
#include "platform/switch/LoamAsicUtils/TableAccess.h"
#include "platform/switch/TableDescription.h"

namespace Host {

// The members of a key in the order of the description. The value that names no row is refused: libraries
// store it, people never mean it.
std::vector<std::uint64_t> keyMembersOf(LoamAsicUtils::TableDescription const& table, Json const& key);
// {"arrayIndex":0,"entryIndex":5}, and "arrayIndex:0,entryIndex:5".
Json keyJson(LoamAsicUtils::TableDescription const& table, std::vector<std::uint64_t> const& members);
std::string keyText(LoamAsicUtils::TableDescription const& table, std::vector<std::uint64_t> const& members);

// A whole row: zero, then the presets, then the fields in the order in which they stand. Fields may overlap,
// and must then agree. `view` names a view class, and is null for tables without views.
LoamAsicUtils::RowImage rowOf(LoamAsicUtils::TableDescription const& table, Json const& view,
                              Json const& fields);

// The fields that a row of that view has; all of the table's where it has no views.
std::vector<LoamAsicUtils::FieldDescription const*> fieldsOf(LoamAsicUtils::TableDescription const& table,
                                                             std::uint32_t view);
// Without those that are another name for the bits of an earlier one, or of an exact-match entry tell its key
// or several fields at once.
std::vector<LoamAsicUtils::FieldDescription const*> distinctFieldsOf(
    LoamAsicUtils::TableDescription const& table, std::uint32_t view);
// The class of a view; empty where the table has no such.
std::string_view viewName(LoamAsicUtils::TableDescription const& table, std::uint32_t view);
// A field of a row: a number, or a hex text where it is wider than 64 bits.
Json fieldJson(LoamAsicUtils::FieldDescription const& field, std::span<std::uint8_t const> row);
// All of them; and "cmdValid:3 cmdMode:1", of the distinct ones without those that are 0.
Json fieldsJson(LoamAsicUtils::TableDescription const& table, std::uint32_t view,
                std::span<std::uint8_t const> row);
std::string fieldsText(LoamAsicUtils::TableDescription const& table, std::uint32_t view,
                       std::span<std::uint8_t const> row);

}  // namespace Host
