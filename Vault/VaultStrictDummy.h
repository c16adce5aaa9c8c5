// The store of a map that must not be used any more: the process ends at the first access, where the fault
// is. What runs while the map is destroyed is let pass. One thread at a time.
#pragma once

#include "Vault/VaultInterface.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

namespace Impl {

// End the process with what was used, and how.
[[noreturn]] void refuseUse(VaultInterfaceBase const& dummy, char const* operation, Dovel::String const& name,
                            Dovel::String const& tail);
[[noreturn]] void refuseUse(VaultInterfaceBase const& dummy, char const* operation, Dovel::String const& name,
                            Dovel::String const& key, Dovel::String const& tail);

}  // namespace Impl

template <class Ops>
class VaultStrictDummy : public VaultInterface<Ops> {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;

  // The tail ends every message.
  VaultStrictDummy(Dovel::Platform::DebugHandler const& handler, Dovel::String name, Mem::RootPath rootPath,
                   Dovel::String tail)
      : VaultInterface<Ops>(handler),
        name_(std::move(name)),
        rootPath_(std::move(rootPath)),
        tail_(std::move(tail)) {}

  bool initialize(Dovel::String const& event) override {
    Dovel::fmassert(this->debugHandler(), kClass, __FILE__, __func__, __LINE__, "{} rootPath:{} event:{}{}",
                    name_, rootPath_.dirName(), event, tail_);
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
  void cleanup() override { trace("cleanup"); }

  std::uint32_t members() const override { Impl::refuseUse(*this, "members", name_, tail_); }
  std::uint32_t buckets() const override { Impl::refuseUse(*this, "buckets", name_, tail_); }
  std::uint32_t minSize() const override { Impl::refuseUse(*this, "minSize", name_, tail_); }
  std::uint32_t maxSize() const override { Impl::refuseUse(*this, "maxSize", name_, tail_); }
  std::uint32_t capacity() const override { Impl::refuseUse(*this, "capacity", name_, tail_); }
  VaultType type() const override { Impl::refuseUse(*this, "type", name_, tail_); }
  Reader::Counters readerCounters() const override { Impl::refuseUse(*this, "readerCounters", name_, tail_); }
  Mem::RootPath rootPath() const override { return rootPath_; }
  Dovel::String vaultName() const override { return rootPath_.dirName(); }
  int mountStatus() const override { return 0; }
  std::uint64_t scratchpad() const override { Impl::refuseUse(*this, "scratchpad", name_, tail_); }
  void validateVersionAnchor() const override {
    Impl::refuseUse(*this, "validateVersionAnchor", name_, tail_);
  }

  Value const* lookup(Key const& key, bool& /*found*/, void* /*out*/) const override {
    Impl::refuseUse(*this, "lookup", name_, keyText(key), tail_);
  }
  bool first(Value& /*value*/, IterHint& /*hint*/) const override {
    Impl::refuseUse(*this, "first", name_, tail_);
  }
  bool next(Key const& key, Value& /*value*/, IterHint& /*hint*/) const override {
    Impl::refuseUse(*this, "next", name_, keyText(key), tail_);
  }

 private:
  static constexpr char kClass[] = "VaultStrictDummy";

  static Dovel::String keyText(Key const& key) { return DOVEL_TRACESTR(kClass, "{}", key); }
  void trace(char const* operation) const {
    DOVEL_TRACE(this->debugHandler(), 5, kClass, "{} {}", operation, name_);
  }

  Dovel::String const name_;
  Mem::RootPath const rootPath_;
  Dovel::String const tail_;
};

}  // namespace Vault
