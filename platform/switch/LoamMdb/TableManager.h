// Owns the managed tables of the modular database. The tables that need none take it as it is handed to their
// factories. Belongs to the agent's thread.
#pragma once

#include "runtime/Dovel/PtrIs.h"

namespace LoamMdb {

class TableManager : public Dovel::Tracked<TableManager> {
 public:
  ~TableManager() override;
};

}  // namespace LoamMdb
