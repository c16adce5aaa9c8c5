#include "platform/switch/Statebase/EntityManager.h"

namespace Statebase {

EntityManager::~EntityManager() { markBeingDestroyed(); }

}  // namespace Statebase
