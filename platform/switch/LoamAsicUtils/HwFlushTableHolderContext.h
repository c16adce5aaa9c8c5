// The process's registry of flush tables, which the bundles' plug-ins fill when they are loaded. The thread
// rule is that of Plugin/Loader.h.
#pragma once

#include <functional>
#include <map>

#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"
#include "platform/switch/LoamAsicUtils/HwTableHolderContext.h"

namespace LoamAsicUtils {

class HwFlushTableHolderContext {
 public:
  using HwFlushFactory = std::function<Dovel::Ptr<MarkSweepTableBase>(
      Hardware::Loam::FapRevision const&, Dovel::Ptr<Hardware::Loam::Status const> const&,
      Dovel::Ptr<Hardware::Loam::MdbStatus const> const&)>;

  static HwFlushTableHolderContext& singleton();

  // A second registration of a key replaces the first.
  void registerHwFlushFactory(HwTableKey const& key, HwFlushFactory factory) {
    factories_[key] = std::move(factory);
  }
  // Empty where none is registered.
  HwFlushFactory hwFlushFactory(HwTableKey const& key) const {
    auto const found = factories_.find(key);
    return found == factories_.end() ? HwFlushFactory() : found->second;
  }
  std::size_t size() const { return factories_.size(); }

 private:
  std::map<HwTableKey, HwFlushFactory> factories_;
};

// Registers FlushTable::factory for each revision of the chip type, at once.
template <class FlushTable, Hardware::ChipType chipType>
class PluginEmFlushTable {
 public:
  PluginEmFlushTable() : name_(FlushTable::pluginName().append("Plugin")) {
    registerAll(HwFlushTableHolderContext::singleton(), SupportedFapRevList::fapRevisionList());
  }
  Dovel::String const& name() const { return name_; }

  static void registerAll(HwFlushTableHolderContext& context,
                          std::set<Hardware::Loam::FapRevision> const& revisions) {
    forEachRevision(chipType, revisions, [&](Hardware::Loam::FapRevision const& revision) {
      context.registerHwFlushFactory(HwTableKey(FlushTable::tableName(), revision), &FlushTable::factory);
    });
  }

 private:
  Dovel::String name_;
};

}  // namespace LoamAsicUtils
