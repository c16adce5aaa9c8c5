#include "runtime/Dovel/ThreadControl.h"

namespace Dovel {

constinit std::atomic<bool> ThreadControl::tsp_{false};

}  // namespace Dovel
