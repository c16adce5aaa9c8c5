// The memory of a local table: private to the process, and gone when it is detached. One thread.
#pragma once

#include <cstdlib>
#include <memory>

#include "platform/memory/AddressRange.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/RootPath.h"

namespace Mem {

class Local : public Mapping {
 public:
  enum Storage { HEAP, ANONYMOUS };

  // Path and name are what errors tell.
  Local(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath, Dovel::String fileName,
        CoreDump coreDump);

  // Where the next attach takes its memory from; the default is ANONYMOUS.
  void useHeapIs(bool useHeap) { storage_ = useHeap ? HEAP : ANONYMOUS; }
  Storage storage() const { return storage_; }

  std::byte* attach(std::size_t size, Access access, std::size_t hint) override;
  std::byte* resize(std::size_t size) override;
  void detach() override;

  // What was taken, as it is for files; 0 while nothing is attached.
  std::size_t memSize() const override { return capacity_; }
  std::size_t mappedSize() const override { return mappedSize_; }
  bool isInPlace() const override { return true; }
  Dovel::String const& error() const override { return error_; }
  Dovel::String const& getFilename() const override { return fileName_; }
  // Of ANONYMOUS storage alone.
  void dumpToCoreIs(CoreDump mode) override;
  void removeFile() override {}

 private:
  struct Free {
    void operator()(std::byte* memory) const { std::free(memory); }
  };

  std::byte* failed(std::size_t size, int error);
  bool isAttached() const { return capacity_ != 0; }
  bool isOnHeap() const { return heap_ != nullptr; }
  bool resizeHeap(std::size_t pages);
  bool resizeRange(std::size_t pages);
  void advise() const;

  Dovel::String const path_;
  Dovel::String const fileName_;
  Dovel::String error_;
  std::unique_ptr<std::byte, Free> heap_;
  AddressRange range_;
  std::size_t capacity_ = 0;
  std::size_t mappedSize_ = 0;
  Storage storage_ = ANONYMOUS;
  CoreDump coreDump_;
};

}  // namespace Mem
