// A mapped file of a store, for its writer and for its readers. One thread.
//
// Its pages are taken from the file system before they are mapped, so a file system without space is an error
// and no signal; when a small file first grows, some of those that it may come to need are taken with them.
// The file is opened anew for each change: a process has many tables and few descriptors.
#pragma once

#include <sys/types.h>

#include "platform/memory/AddressRange.h"
#include "platform/memory/FileAccess.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/RootPath.h"

namespace Mem {

class SharedMemWrapper : public Mapping, public Dovel::Debuggable {
 public:
  SharedMemWrapper(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                   Dovel::String fileName, CoreDump coreDump);
  ~SharedMemWrapper() override { unmap(); }

  // Of a file that exists, what lies past its last page isn't mapped: mappedSize() tells. Read-only access
  // needs a file that isn't empty.
  std::byte* attach(std::size_t size, Access access, std::size_t hint) override;
  // Read-only: fails where the file isn't that large yet.
  std::byte* resize(std::size_t size) override;
  void detach() override { unmap(); }

  std::size_t memSize() const override;
  std::size_t mappedSize() const override { return mappedSize_; }
  bool isInPlace() const override;
  Dovel::String const& error() const override { return error_; }
  Dovel::String const& getFilename() const override { return fileName_; }
  void dumpToCoreIs(CoreDump mode) override;
  void removeFile() override { rootPath_.removeFile(fileName_); }

 private:
  std::byte* failed(char const* what, std::size_t size, char const* why);
  OpenedFile open(FileUse use);
  bool mapWhole(OpenedFile const& file, std::size_t size, std::size_t hint);
  std::byte* grow(std::size_t size);
  std::byte* growFile(OpenedFile const& file, std::size_t wanted);
  std::byte* follow(OpenedFile const& file, std::size_t size);
  bool takePages(int descriptor, std::uint64_t begin, std::uint64_t end) const;
  std::byte* shrink(std::size_t size);
  void giveBack(int descriptor, std::uint64_t begin, std::uint64_t end) const;
  void advise() const;
  bool isForeign() const;
  void unmap();

  RootPath const rootPath_;
  Dovel::String const fileName_;
  Dovel::String const path_;
  Dovel::String error_;
  AddressRange range_;
  std::size_t mappedSize_ = 0;
  // So far the range may grow without a look at the file: a reader found it so long, or the writer has taken
  // its pages.
  std::uint64_t ready_ = 0;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  Access access_ = Access::readOnly;
  pid_t process_ = 0;
  CoreDump coreDump_;
};

}  // namespace Mem
