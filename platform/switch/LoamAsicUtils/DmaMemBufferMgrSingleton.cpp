#include "platform/switch/LoamAsicUtils/DmaMemBufferMgrSingleton.h"

#include <memory>

namespace LoamAsicUtils {

// Never destroyed: commands of a bundle may end after the statics of this library.
DmaMemBufferMgrSingleton& DmaMemBufferMgrSingleton::singleton() {
  static auto* const instance = new DmaMemBufferMgrSingleton;
  return *instance;
}

EmSchanResponse DmaMemBufferMgrSingleton::responsesTake(unsigned int faps) {
  std::size_t const bytes = faps * sizeof(Sluice::SchanResponse);
  auto& free = free_[faps];
  if (free.empty()) {
    if (current_ == nullptr || current_->vaCursor() + bytes > current_->va() + current_->bufSize())
      current_ = DmaMemPoolManager::dmaMemPoolBufferFactory(
          DmaMemPoolManager::localMemPoolFactory("schanResponses", DmaMemPoolManager::kDefaultBufSize, 1));
    free.push_back({current_, reinterpret_cast<std::uint64_t>(current_->vaCursor())});
    current_->incVaCursor(bytes);
  }
  EmSchanResponse taken = std::move(free.back());
  free.pop_back();
  std::uninitialized_default_construct_n(reinterpret_cast<Sluice::SchanResponse*>(taken.currentVa), faps);
  return taken;
}

void DmaMemBufferMgrSingleton::responsesGive(EmSchanResponse const& response, unsigned int faps) {
  free_[faps].push_back(response);
}

std::uint64_t DmaMemBufferMgrSingleton::schanErrCounter(Dovel::String const& name) const {
  auto const found = errors_.find(name);
  return found == errors_.end() ? 0 : found->second;
}

}  // namespace LoamAsicUtils
