// Binds what a map tells to the entity of the collection. The entity outlives the map. Any thread.
#pragma once

namespace OrloVault {

template <class Storage>
typename Storage::Map::Notify makeNotify(Storage& storage) {
  typename Storage::Map::Notify notify;
  notify.keyChanged = [&storage](auto const& key) { storage.entryCollNotify(key); };
  notify.mountStatusChanged = [&storage] { storage.entryCollNotifyMountStatus(); };
  notify.quiescedChanged = [&storage](bool quiesced) { storage.entryCollNotifyQuiesced(quiesced); };
  return notify;
}

}  // namespace OrloVault
