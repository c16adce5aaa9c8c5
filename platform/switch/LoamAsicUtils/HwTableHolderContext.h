// The process's registry of table factories, which the bundles' plug-ins fill and hosts ask. The thread rule
// is that of Plugin/Loader.h.
#pragma once

#include <functional>
#include <map>

#include "platform/switch/LoamAsicUtils/SupportedFapRevList.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"
#include "platform/switch/LoamMdb/TableManager.h"
#include "platform/switch/Plugin/Loader.h"

namespace LoamAsicUtils {

class HwTableHolderContext {
 public:
  // Returns the manager's table of that revision where it has one, else a new one, which is the caller's to
  // put in.
  using HwTableFactory = std::function<Dovel::Ptr<HwCommonTableBase>(
      Hardware::Loam::FapRevision const&, Dovel::Ptr<TableManager> const&,
      Dovel::Ptr<LoamMdb::TableManager> const&)>;

  static HwTableHolderContext& singleton();

  // A second registration of a key under a writer's name replaces the first. The tag marks tables that a
  // writer treats apart.
  void registerHwTableFactory(Dovel::String const& writerName, HwTableKey const& key, HwTableFactory factory,
                              Dovel::String const& tag);
  // Empty where none is registered.
  HwTableFactory hwTableFactory(Dovel::String const& writerName, HwTableKey const& key) const;
  Dovel::String hwTableTag(Dovel::String const& writerName, HwTableKey const& key) const;
  // In the order of writers and keys.
  std::vector<std::pair<Dovel::String, HwTableKey>> hwTableFactories() const;

 private:
  struct Registered {
    HwTableFactory factory;
    Dovel::String tag;
  };

  std::map<std::pair<Dovel::String, HwTableKey>, Registered> tables_;
};

namespace HwTablePlugin {

// The process's loader of table plug-ins.
Plugin::Loader<HwTableHolderContext>& DefaultHwTableLoader();

}  // namespace HwTablePlugin

// A plug-in of the kind that waits for its loader.
template <class Context>
class PluginBase {
 public:
  virtual ~PluginBase() = default;
  PluginBase(PluginBase const&) = delete;
  PluginBase& operator=(PluginBase const&) = delete;
  virtual void init(Context* context) = 0;

 protected:
  PluginBase() = default;

  class PluginBaseInitCaller final : public Plugin::PluginInitCaller<Context> {
   public:
    explicit PluginBaseInitCaller(PluginBase& plugin) : plugin_(plugin) {}
    void operator()(Context* context) override { plugin_.init(context); }

   private:
    PluginBase& plugin_;
  };
};

// Calls visit(revision) for the revisions of the chip type, in ascending order.
template <class Visit>
void forEachRevision(Hardware::ChipType chipType, std::set<Hardware::Loam::FapRevision> const& revisions,
                     Visit&& visit) {
  for (Hardware::Loam::FapRevision const& revision : revisions)
    if (revision.chipType() == chipType) visit(revision);
}

// Registers T::factory for each revision of the chip type when its loader loads.
template <class T, Hardware::ChipType chipType>
class PluginHwTable final : public PluginBase<HwTableHolderContext> {
 public:
  explicit PluginHwTable(Dovel::String writerName)
      : initCaller_(*this),
        loaderCaller_(HwTablePlugin::DefaultHwTableLoader().callerIs(initCaller_)),
        writerName_(std::move(writerName)) {
    auto& loader = HwTablePlugin::DefaultHwTableLoader();
    loader.registerPlugin(T::tableTypeName().append("Plugin"), loader.name(), "", "", loaderCaller_);
  }
  // What was registered stays.
  ~PluginHwTable() override { HwTablePlugin::DefaultHwTableLoader().callerDel(loaderCaller_); }

  void init(HwTableHolderContext* context) override {
    registerAll(*context, SupportedFapRevList::fapRevisionList());
  }
  void registerAll(HwTableHolderContext& context, std::set<Hardware::Loam::FapRevision> const& revisions) {
    forEachRevision(chipType, revisions, [&](Hardware::Loam::FapRevision const& revision) {
      context.registerHwTableFactory(writerName_, HwTableKey(T::tableName(), revision), &T::factory,
                                     T::tag());
    });
  }

 private:
  PluginBaseInitCaller initCaller_;
  Plugin::Loader<HwTableHolderContext>::LoaderInitCallerWithContext& loaderCaller_;
  Dovel::String writerName_;
};

}  // namespace LoamAsicUtils
