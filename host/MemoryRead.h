// A memory of a chip as it was read: in bulk, and around the rows that the chip refuses. One thread, that of
// the control plane.
#pragma once

#include <span>
#include <vector>

#include "host/ControlPlane.h"

namespace Host {

class MemoryRead {
 public:
  // Reads all rows.
  MemoryRead(ControlPlane& plane, Sluice::FapId fap, LoamAsicUtils::BcmRegMemInfo const& memory,
             LoamAsicUtils::BcmInstanceInfo const& instance);

  // Counted from the memory's first row; empty where it couldn't be read.
  std::span<std::uint8_t const> row(std::uint32_t number) const;

 private:
  using Buffer = Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer>;

  void read(std::uint32_t first, std::uint32_t rows);
  bool transfer(std::uint32_t first, std::uint32_t rows);

  Sluice::Channel& channel_;
  Sluice::Fapmask fap_;
  LoamAsicUtils::BcmRegMemInfo const& memory_;
  LoamAsicUtils::BcmInstanceInfo const& instance_;
  Buffer buffer_;
  std::vector<std::uint8_t> data_;
  std::vector<bool> had_;
};

}  // namespace Host
