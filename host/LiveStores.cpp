#include "host/LiveStores.h"

#include <algorithm>
#include <charconv>
#include <tuple>

#include "host/Output.h"
#include "host/StoreSearch.h"
#include "platform/switch/Sluice/FapId.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

using Vault::StoredType;
using Vault::StoreFiles;

// Under which all shadows stand: shadow/<revision>/<table>/<fap>-<instance>.
constexpr char kShadows[] = "shadow";

Mem::RootPath rootPath(std::string const& path) {
  return {Dovel::Platform::getDebugHandler("LiveStores", true), Dovel::String(path), true};
}

// Takes the last part of a path away.
std::string takeLast(std::string& path) {
  auto const slash = path.rfind('/');
  std::string last = path.substr(slash + 1);
  path.resize(slash);
  return last;
}

// Nothing where the path is not that of a shadow.
std::optional<ShadowStore> shadowStore(std::string const& path) {
  std::string left = path;
  std::string const key = takeLast(left);
  ShadowStore store{path, "", takeLast(left), std::nullopt};
  store.revision = takeLast(left);
  unsigned fap = 0;
  if (std::from_chars(key.data(), key.data() + key.size(), fap).ec != std::errc()) return std::nullopt;
  if (fap != Sluice::FapId::null().value()) store.fap = fap;
  return store;
}

auto orderOf(ShadowStore const& store) { return std::tuple(store.revision, store.table, store.fap); }

StoredType const* typeOf(ShadowStore const& store) {
  StoreFiles const files = filesOf(store, StoreFiles::Extent::headers);
  StoredType const* const type = StoredType::find(files.slots().typeName());
  if (type == nullptr || type->reader == nullptr) {
    DOVEL_THROW(Dovel::RuntimeException, "StoreReading", "{}: the bundle knows no type \"{}\"",
                oneLine(store.path), oneLine(files.slots().typeName()));
  }
  return type;
}

}  // namespace

std::vector<ShadowStore> shadowStores() {
  std::vector<ShadowStore> stores;
  StoreSearch const search(rootPath(kShadows).dirName());
  for (std::string const& path : search.stores())
    if (auto store = shadowStore(path)) stores.push_back(std::move(*store));
  std::ranges::sort(stores, {}, orderOf);
  return stores;
}

StoreFiles filesOf(ShadowStore const& store, StoreFiles::Extent extent) {
  return {rootPath(store.path), extent};
}

StoreReading::StoreReading(ShadowStore const& store)
    : store_(store), type_(typeOf(store)), reader_(type_->reader(rootPath(store.path))) {
  if (!reader_->attach())
    DOVEL_THROW(Dovel::RuntimeException, "StoreReading", "{} is not complete, or damaged",
                oneLine(store.path));
}

// The files tell which keys there are; each record is then looked up, as what a copy of the files holds may
// be of different moments.
void StoreReading::forEach(std::function<void(std::byte const*)> const& visit) {
  StoreFiles const files = filesOf(store_, StoreFiles::Extent::whole);
  auto const& slots = files.slots();
  std::vector<std::byte const*> records;
  if (slots.hasShape() && slots.valueSize() == type_->valueSize) {
    for (std::uint32_t id = 0; id < slots.slots(); ++id)
      if (slots.link(id).occupied()) records.push_back(slots.value(id));
  }
  std::ranges::sort(records, [&](auto* a, auto* b) { return type_->compareKeys(a, b) < 0; });
  // One that was being moved stands twice.
  auto const same = [&](auto* a, auto* b) { return type_->compareKeys(a, b) == 0; };
  records.erase(std::unique(records.begin(), records.end(), same), records.end());
  for (std::byte const* const record : records)
    if (std::byte const* const found = find(type_->keyText(record))) visit(found);
}

}  // namespace Host
