// Where a mapping stands in the address space. One of 2 MiB and more stands at a multiple of that, so that
// the processor can be given huge pages. One thread.
#pragma once

#include <cstddef>

namespace Mem {

class AddressRange {
 public:
  AddressRange() = default;
  AddressRange(AddressRange const&) = delete;
  AddressRange& operator=(AddressRange const&) = delete;
  ~AddressRange() { unmap(); }

  static constexpr std::size_t kHugePage = std::size_t{2} << 20;

  // Maps a file from its start, or, for the descriptor -1, private zeroes. Sizes are whole pages. Where it
  // can be had, room for `hint` bytes is mapped at once, so that growth up to there costs nothing; only the
  // first `size` bytes may be touched, for a file may end behind them. False with errno.
  bool map(int descriptor, int protection, std::size_t size, std::size_t hint);

  // Moves where it can't grow in place. False with errno and everything as it was.
  bool grow(std::size_t size);
  // Fails never; what is cut off may no longer be touched.
  void shrink(std::size_t size);
  // Idempotent.
  void unmap();
  // Leaves all as it stands and takes it for no longer ours.
  void forget();
  void swap(AddressRange& other) noexcept;

  std::byte* base() const { return base_; }
  std::size_t size() const { return size_; }
  // What is mapped, used or not.
  std::size_t room() const { return room_; }

  // Makes huge, where the kernel can, those whole huge pages of a file that have a part in the range.
  static void collapse(int descriptor, std::size_t begin, std::size_t end);
  // Maps the pages of a writable range at once, where it would else take a fault for each. Where the range
  // has such pages, these alone, and as huge ones: those of which a part was mapped before would stay small
  // here, whatever they are in the file.
  void mapPages(std::size_t begin, std::size_t end) const;

 private:
  bool mapRoom(int descriptor, int protection, std::size_t size, std::size_t room);
  bool growRoom(std::size_t room);

  std::byte* base_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;  // size_ at least
};

}  // namespace Mem
