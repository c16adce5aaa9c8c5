// The store of a map that has none: empty, and read-only. Holds no changing state; one thread at a time.
#pragma once

#include <cstring>
#include <memory>

#include "Vault/VaultInterface.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

template <class Ops>
class VaultDummy : public VaultInterface<Ops> {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;

  // `previous` is the store that this one stands in for, or null: cleanup() goes on to it. It is deleted with
  // the dummy where ownsPrevious is set, and outlives it otherwise.
  VaultDummy(Dovel::Platform::DebugHandler const& handler, Dovel::String name, Mem::RootPath rootPath,
             VaultInterface<Ops>* previous, bool ownsPrevious)
      : VaultInterface<Ops>(handler),
        name_(std::move(name)),
        rootPath_(std::move(rootPath)),
        previous_(previous),
        owned_(ownsPrevious ? previous : nullptr) {}

  bool initialize(Dovel::String const& event) override {
    DOVEL_TRACE(this->debugHandler(), 5, "VaultDummy", "{} event:{}", name_, event);
    return true;
  }
  void detach(bool /*force*/) override { trace("detach"); }
  bool validate() override {
    trace("validate");
    return true;
  }
  bool validateFiles() override {
    trace("validateFiles");
    return true;
  }
  void cleanup() override {
    trace("cleanup");
    if (previous_ != nullptr) previous_->cleanup();
  }

  std::uint32_t members() const override { return none("members"); }
  std::uint32_t buckets() const override { return none("buckets"); }
  std::uint32_t minSize() const override { return none("minSize"); }
  std::uint32_t maxSize() const override { return none("maxSize"); }
  std::uint32_t capacity() const override { return none("capacity"); }
  VaultType type() const override {
    trace("type");
    return VaultType::reader;
  }
  Reader::Counters readerCounters() const override {
    trace("readerCounters");
    return {};
  }
  Mem::RootPath rootPath() const override { return rootPath_; }
  Dovel::String vaultName() const override { return rootPath_.dirName(); }
  int mountStatus() const override {
    trace("mountStatus");
    return 0;
  }
  std::uint64_t scratchpad() const override { return none("scratchpad"); }

  // An anchor comes out of a look-up that has found something, which is never the case here: who has one kept
  // it while the store behind the map was changed.
  void validateVersionAnchor() const override {
    Dovel::fmassert(this->debugHandler(), "VaultDummy", __FILE__, __func__, __LINE__,
                    "should never be called since it's impossible for a lookup to succeed");
  }

  Value const* lookup(Key const& /*key*/, bool& found, void* out) const override {
    trace("lookup");
    found = false;
    Value const& nothing = Ops::ValueOps::type_default_;
    if (out != nullptr) std::memcpy(out, &nothing, Ops::valueSize);
    return &nothing;
  }
  bool first(Value& value, IterHint& /*hint*/) const override {
    trace("first");
    value = Ops::ValueOps::type_default_;
    return false;
  }
  bool next(Key const& /*key*/, Value& value, IterHint& hint) const override { return first(value, hint); }

 private:
  void trace(char const* operation) const {
    DOVEL_TRACE(this->debugHandler(), 5, "VaultDummy", "{} {}", operation, name_);
  }
  std::uint32_t none(char const* operation) const {
    trace(operation);
    return 0;
  }

  Dovel::String const name_;
  Mem::RootPath const rootPath_;
  VaultInterface<Ops>* const previous_;
  std::unique_ptr<VaultInterface<Ops>> const owned_;
};

}  // namespace Vault
