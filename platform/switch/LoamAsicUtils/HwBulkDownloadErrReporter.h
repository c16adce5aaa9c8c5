// Who is told when a table couldn't be downloaded in bulk. One a table; belongs to the table's thread.
#pragma once

#include <functional>
#include <map>
#include <span>

#include "platform/switch/LoamAsicUtils/HwShadowKey.h"
#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/String.h"

namespace LoamAsicUtils {

struct BulkDownloadFailure {
  Dovel::String table;
  HwShadowKey shadow;
  std::uint32_t entryBytes = 0;
  // The entries that were to be written, one after the other, of which the chip has taken some or none; empty
  // where nothing was tried in bulk. They stand there during the call.
  std::span<std::uint8_t const> entries;
};

// What one of those who are told does. It may not send commands: it is called in the middle of a sending.
class HwBulkDownloadErrConfig : public Dovel::Tracked<HwBulkDownloadErrConfig> {
 public:
  using Callback = std::function<void(BulkDownloadFailure const&)>;

  explicit HwBulkDownloadErrConfig(Callback callback) : callback_(std::move(callback)) {}
  ~HwBulkDownloadErrConfig() override { markBeingDestroyed(); }

  void failed(BulkDownloadFailure const& failure) const { callback_(failure); }

 private:
  Callback callback_;
};

class HwBulkDownloadErrReporter : public Dovel::Tracked<HwBulkDownloadErrReporter> {
 public:
  ~HwBulkDownloadErrReporter() override { markBeingDestroyed(); }

  // A second one under a name replaces the first.
  void configIs(Dovel::String const& name, Dovel::Ptr<HwBulkDownloadErrConfig> const& config) {
    configs_[name] = config;
  }
  void configDel(Dovel::String const& name) { configs_.erase(name); }

  // Tells all, in the order of their names.
  void failureIs(BulkDownloadFailure const& failure) const {
    for (auto const& [name, config] : configs_) config->failed(failure);
  }

 private:
  std::map<Dovel::String, Dovel::Ptr<HwBulkDownloadErrConfig>> configs_;
};

}  // namespace LoamAsicUtils
