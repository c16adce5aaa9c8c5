// The memory in which a file of a store stands: a mapped file that other processes read, or private memory.
// One thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/memory/CoreDump.h"
#include "runtime/Dovel/String.h"

namespace Mem {

enum class Access { readOnly, readWrite };

class Mapping {
 public:
  Mapping() = default;
  Mapping(Mapping const&) = delete;
  Mapping& operator=(Mapping const&) = delete;
  virtual ~Mapping() = default;

  // Maps the bytes and returns where they stand, or null with the reason in error(). A new file is made and
  // given that size, its pages taken from the file system at once; an existing file keeps the size it has,
  // and what lies past its end must not be touched. The base is 0 modulo 4096. `hint`: the size that the
  // table is likely to reach, 0 for unknown; a wish that costs address space alone.
  virtual std::byte* attach(std::size_t size, Access access, std::size_t hint) = 0;

  // Grows or shrinks what is mapped and returns the base, which may have moved, or null with the reason in
  // error() and everything as it was. Growth past the end of the file takes its pages at once; the new bytes
  // are zero. Shrinking gives the pages past the size back and leaves the length of the file: a late reader
  // finds zeroes there.
  virtual std::byte* resize(std::size_t size) = 0;

  // Idempotent.
  virtual void detach() = 0;

  // The size of the file as it is now; 0 where there is none, or nothing is in it.
  virtual std::size_t memSize() const = 0;
  // What is mapped.
  virtual std::size_t mappedSize() const = 0;

  // Whether the name of the file still leads to the one that is mapped. Always of private memory.
  virtual bool isInPlace() const = 0;

  // Why the last attach or resize failed.
  virtual Dovel::String const& error() const = 0;
  // The name of the file in its directory.
  virtual Dovel::String const& getFilename() const = 0;
  virtual void dumpToCoreIs(CoreDump mode) = 0;

  // Deletes the file; what is mapped stays mapped. Absent is fine.
  virtual void removeFile() = 0;
};

}  // namespace Mem
