#include "host/CatalogueJson.h"

#include <nlohmann/json.hpp>

namespace Host {
namespace {

using LoamAsicUtils::TableDescription;
using Json = nlohmann::ordered_json;

Json memoryJson(LoamAsicUtils::MemoryDescription const& memory) {
  Json json = {{"id", memory.id},
               {"name", memory.name},
               {"block", memory.block},
               {"address", memory.address},
               {"firstArray", memory.firstArray},
               {"arrayCount", memory.arrayCount},
               {"firstEntry", memory.firstEntry},
               {"entryCount", memory.entryCount},
               {"entrySize", memory.entrySize}};
  if (memory.physicalTableId) json["physicalTableId"] = *memory.physicalTableId;
  return json;
}

Json fieldJson(LoamAsicUtils::FieldDescription const& field) {
  return {{"view", field.view.empty() ? Json(nullptr) : Json(field.view)},
          {"name", field.name},
          {"type", field.type},
          {"low", field.low},
          {"high", field.high}};
}

Json tableJson(TableDescription const& table) {
  Json json = {{"name", table.name},
               {"typeName", table.typeName},
               {"family", stringValue(table.family)},
               {"chipName", table.chipName},
               {"tag", table.tag}};
  if (table.mdbTableId) json["mdbTableId"] = *table.mdbTableId;
  json["key"] = Json::array();
  for (auto const& member : table.key) {
    json["key"].push_back(
        {{"name", member.name}, {"type", member.type}, {"min", member.min}, {"max", member.max}});
  }
  json["entryDataMaxSize"] = table.entryDataMaxSize;
  json["entryDataMaxSizeBits"] = table.entryDataMaxSizeBits();
  json["hasParitySupport"] = table.hasParitySupport;
  json["memories"] = Json::array();
  for (auto const& memory : table.memories) json["memories"].push_back(memoryJson(memory));
  json["presets"] = Json::object();
  for (auto const& preset : table.presets) json["presets"][std::string(preset.field)] = preset.value;
  json["fields"] = Json::array();
  for (auto const& field : table.fields) json["fields"].push_back(fieldJson(field));
  return json;
}

}  // namespace

std::string catalogueJson(std::vector<TableDescription const*> const& tables) {
  Json list = Json::array();
  for (TableDescription const* const table : tables) list.push_back(tableJson(*table));
  return Json{{"tables", std::move(list)}}.dump(2);
}

}  // namespace Host
