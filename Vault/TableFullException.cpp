#include "Vault/TableFullException.h"

namespace Vault {

TableFullException::~TableFullException() = default;

void TableFullException::throwException(Dovel::String const& message) { throw TableFullException(message); }

}  // namespace Vault
