#include "platform/switch/LoamAsicUtils/HwTableHolderContext.h"

namespace Plugin {

LoaderInitCaller::~LoaderInitCaller() = default;

}  // namespace Plugin

namespace LoamAsicUtils {

// Neither is ever destroyed: bundles may be unloaded after the statics of this library are gone.
HwTableHolderContext& HwTableHolderContext::singleton() {
  static auto* const instance = new HwTableHolderContext;
  return *instance;
}

Plugin::Loader<HwTableHolderContext>& HwTablePlugin::DefaultHwTableLoader() {
  static auto* const instance = new Plugin::Loader<HwTableHolderContext>("DefaultHwTableLoader");
  return *instance;
}

void HwTableHolderContext::registerHwTableFactory(Dovel::String const& writerName, HwTableKey const& key,
                                                  HwTableFactory factory, Dovel::String const& tag) {
  tables_[{writerName, key}] = {std::move(factory), tag};
}

HwTableHolderContext::HwTableFactory HwTableHolderContext::hwTableFactory(Dovel::String const& writerName,
                                                                          HwTableKey const& key) const {
  auto const found = tables_.find({writerName, key});
  return found == tables_.end() ? HwTableFactory() : found->second.factory;
}

Dovel::String HwTableHolderContext::hwTableTag(Dovel::String const& writerName, HwTableKey const& key) const {
  auto const found = tables_.find({writerName, key});
  return found == tables_.end() ? Dovel::String() : found->second.tag;
}

std::vector<std::pair<Dovel::String, HwTableKey>> HwTableHolderContext::hwTableFactories() const {
  std::vector<std::pair<Dovel::String, HwTableKey>> keys;
  keys.reserve(tables_.size());
  for (auto const& [key, registered] : tables_) keys.push_back(key);
  return keys;
}

}  // namespace LoamAsicUtils
