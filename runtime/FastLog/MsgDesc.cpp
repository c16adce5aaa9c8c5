#include "runtime/FastLog/MsgDesc.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "runtime/FastLog/Registry.h"

namespace FastLog {
namespace {

constexpr std::size_t kMaxTextBytes = 0xffff;

std::string_view limited(std::string_view text) { return text.substr(0, kMaxTextBytes); }

}  // namespace

MsgDesc::MsgDesc(TraceFile*, int* msgId, char const* file, int line)
    : msgId_(msgId), file_(file), line_(line) {}

MsgDesc::~MsgDesc() = default;

void MsgFormatString::put(MsgDesc& desc, fmt::string_view format) {
  desc.format_.assign(format.data(), format.size());
}

void putArgumentKind(MsgDesc& desc, ArgumentKind kind) { desc.kinds_.push_back(static_cast<char>(kind)); }

void MsgDesc::finish() {
  std::string_view const file = limited(file_);
  std::string_view const format = limited(format_);
  std::string const texts = kinds_ + std::string(file) + std::string(format);
  std::vector<std::uint64_t> encoded((sizeof(Descriptor) + texts.size() + 7) / 8);
  Descriptor const lead{static_cast<std::uint32_t>(encoded.size() * 8),
                        0,
                        static_cast<std::uint32_t>(line_),
                        static_cast<std::uint16_t>(file.size()),
                        static_cast<std::uint16_t>(format.size()),
                        kinds_.size()};
  std::memcpy(encoded.data(), &lead, sizeof lead);
  std::memcpy(encoded.data() + sizeof lead / 8, texts.data(), texts.size());
  Registry::registerSite(std::move(encoded), msgId_);
}

}  // namespace FastLog
