#include "platform/switch/LoamMdb/TableManager.h"

namespace LoamMdb {

TableManager::~TableManager() { markBeingDestroyed(); }

}  // namespace LoamMdb
