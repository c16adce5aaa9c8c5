// The trace sink of objects that live at run time, such as the collections of the store.
// A handler is a pointer in size: copy it freely; any thread.
#pragma once

#include <string_view>

#include "runtime/Dovel/String.h"
#include "runtime/Dovel/TraceChannel.h"

namespace Dovel {
namespace Platform {

class DebugHandler : public Impl::ChannelHandle {
 private:
  friend DebugHandler getDebugHandler(std::string_view name, bool perObject);
  using ChannelHandle::ChannelHandle;
};

// The handler of the channel of that name; made on first use. perObject is true for a channel that is named
// after an object made at run time, and false for one named in the source; Dovel::Trace::channels() tells
// them apart.
inline DebugHandler getDebugHandler(std::string_view name, bool perObject) { return {name, perObject}; }

}  // namespace Platform

namespace Util {

// The channel name of a collection, "base-collection": what trace rules and trace lines use as separators
// (commas, blanks, control characters) becomes '_'. An empty part is left out with the dash. Where shared is
// true, all collections of the base have one channel, that of the base.
String traceHandleName(std::string_view baseName, std::string_view collectionName, bool shared);

}  // namespace Util

// Base of classes that trace.
class Debuggable {
 public:
  explicit Debuggable(Platform::DebugHandler const& handler) : debugHandler_(handler) {}
  Debuggable(std::string_view name, bool perObject)
      : debugHandler_(Platform::getDebugHandler(name, perObject)) {}

  Platform::DebugHandler const& debugHandler() const { return debugHandler_; }

 protected:
  ~Debuggable() = default;
  Debuggable(Debuggable const&) = default;
  Debuggable& operator=(Debuggable const&) = default;

 private:
  Platform::DebugHandler debugHandler_;
};

}  // namespace Dovel
