#include "runtime/Dovel/DebugHandler.h"

namespace Dovel {

String Util::traceHandleName(std::string_view baseName, std::string_view collectionName, bool shared) {
  std::string name(baseName);
  if (!shared && !collectionName.empty()) {
    if (!name.empty()) name += '-';
    name += collectionName;
  }
  for (char& letter : name) {
    bool const control = static_cast<unsigned char>(letter) < 0x20 || letter == 0x7f;
    if (control || letter == ' ' || letter == ',') letter = '_';
  }
  return name;
}

}  // namespace Dovel
