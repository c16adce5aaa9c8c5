// How a writer comes to its files and lets go of them: adopts what a former writer left, or wipes it. The
// part of VaultWriter that doesn't depend on the type of the records. One thread.
#pragma once

#include <memory>
#include <optional>

#include "Herald/DummyHeraldWriter.h"
#include "Vault/MapDescriptor.h"
#include "Vault/SlotWriterCommon.h"
#include "VaultCore/BucketWriter.h"
#include "platform/memory/EmberFile.h"
#include "platform/memory/OwnerFile.h"
#include "platform/memory/WriterLock.h"

namespace Vault {

class WriterLifecycle {
 public:
  WriterLifecycle(WriterLifecycle const&) = delete;
  WriterLifecycle& operator=(WriterLifecycle const&) = delete;

  Writer::Counters const& counters() const { return counters_; }
  Herald::Writer::Counters const& heraldCounters() const { return heraldCounters_; }
  // Everything that the headers of all files say.
  Dovel::String dumpHeaders() const;

 protected:
  using Buckets = VaultCore::BucketWriter<SlotLink>;

  // The herald, where it isn't null, tells readers of changes.
  WriterLifecycle(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                  MapDescriptor const& descriptor, std::string_view typeName,
                  std::unique_ptr<Herald::HeraldWriter> herald);
  virtual ~WriterLifecycle() = default;

  // Of the writer: its slots, a full check of all files, and the start of work on newly attached ones.
  virtual SlotWriterTableCommon& slots() = 0;
  virtual bool validateAll(SharedMem::EmberId emberId, bool checkOwner) = 0;

  // The mapping that a file of this table stands in.
  std::unique_ptr<Mem::Mapping> mappingOf(char const* fileName) const;

  // Throws where the files can't be had, and where they don't validate and are to be kept. Nothing is
  // attached and no lock is held then.
  void attach();
  void detachFiles();
  void cleanupFiles();
  void removeFiles();
  bool filesAreThere();
  bool ownerIsValid() const;

  // A forked child has no part in its parent's store: every use is refused.
  void refuseForeign(char const* operation) const;
  bool isForeign() const { return *foreign_; }

  Dovel::Platform::DebugHandler const handler_;
  bool const localMem_;
  Mem::RootPath const rootPath_;
  SharedMem::EmberId emberId_;
  std::uint32_t hashSeed_ = 0;
  mutable Writer::Counters counters_;
  Herald::Writer::Counters heraldCounters_;
  Mem::CoreDump const coreDump_;
  bool const useHeap_;
  bool const trackMemory_;
  Buckets buckets_;
  std::unique_ptr<Herald::HeraldWriter> herald_;
  std::string_view const typeName_;
  bool initialized_ = false;

 private:
  struct Claim;

  void claimAndAttach();
  AttachResult attachAndValidate(bool wipe, Claim& claim);
  void wipe(Claim& claim);
  AttachResult attachFiles();
  void explainFailure(bool wiped, Claim& claim);
  void letGo();

  static constexpr bool kNeverForeign = false;

  std::optional<Mem::WriterLock> writerLock_;
  bool const* foreign_ = &kNeverForeign;
  SharedMem::WireletInfo wireletInfo_;
  bool owner_ = false;
};

}  // namespace Vault
