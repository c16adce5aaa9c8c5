// All logging sites and open log files of this process. An id names its site in every file, so that a site
// may log to any of them, and so that a file made later, in a forked child too, describes the sites of
// before. Any thread.
#pragma once

#include <cstdint>
#include <vector>

namespace FastLog {

class TraceFile;

namespace Registry {

// Gives the site an id, puts it into the encoded descriptor, describes it in all files and sets *msgId last.
// Without effect if another thread was first.
void registerSite(std::vector<std::uint64_t> descriptor, int* msgId);

void attach(TraceFile& file);
void detach(TraceFile& file);

}  // namespace Registry
}  // namespace FastLog
