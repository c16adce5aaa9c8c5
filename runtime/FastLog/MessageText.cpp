#include "runtime/FastLog/MessageText.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <cstring>
#include <iterator>

namespace FastLog {
namespace {

// Bounds what a damaged format, with a width of a billion say, can make.
constexpr std::size_t kMaxTextBytes = 1 << 16;

using Store = fmt::dynamic_format_arg_store<fmt::format_context>;

template <class Value>
std::optional<Value> take(std::string_view& bytes) {
  Value value;
  if (bytes.size() < sizeof value) return std::nullopt;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes.remove_prefix(sizeof value);
  return value;
}

std::optional<std::string_view> takeText(std::string_view& bytes) {
  auto const size = take<std::uint16_t>(bytes);
  if (!size || bytes.size() < *size) return std::nullopt;
  std::string_view const text = bytes.substr(0, *size);
  bytes.remove_prefix(*size);
  return text;
}

// Takes one argument; false where the bytes have ended, as in a message that was cut.
bool push(Store& store, ArgumentKind kind, std::string_view& bytes) {
  if (kind == ArgumentKind::string) {
    auto const text = takeText(bytes);
    if (text) store.push_back(fmt::string_view(text->data(), text->size()));
    return text.has_value();
  }
  auto const word = take<std::uint64_t>(bytes);
  if (!word) return false;
  switch (kind) {
    case ArgumentKind::signedNumber:
      store.push_back(static_cast<std::int64_t>(*word));
      return true;
    case ArgumentKind::truth:
      store.push_back(*word != 0);
      return true;
    case ArgumentKind::character:
      store.push_back(static_cast<char>(*word));
      return true;
    case ArgumentKind::floating: {
      double value;
      std::memcpy(&value, &*word, sizeof value);
      store.push_back(value);
      return true;
    }
    case ArgumentKind::address:
      store.push_back(reinterpret_cast<void const*>(static_cast<std::uintptr_t>(*word)));
      return true;
    default:
      store.push_back(*word);
      return true;
  }
}

// Reads one descriptor at the start of the bytes; nothing where it is damaged.
std::optional<Site> siteAt(std::string_view bytes, Descriptor const& lead) {
  std::uint64_t const texts = std::uint64_t{lead.fileBytes} + lead.formatBytes;
  if (lead.bytes < sizeof lead || lead.bytes % 8 != 0 || lead.bytes > bytes.size()) return std::nullopt;
  std::uint64_t const room = lead.bytes - sizeof lead;
  if (lead.argumentCount > room || texts > room - lead.argumentCount) return std::nullopt;
  bytes.remove_prefix(sizeof lead);
  Site site;
  site.line = lead.line;
  site.kinds = bytes.substr(0, lead.argumentCount);
  site.file = bytes.substr(lead.argumentCount, lead.fileBytes);
  site.format = bytes.substr(lead.argumentCount + lead.fileBytes, lead.formatBytes);
  return site;
}

}  // namespace

Sites sitesOf(std::span<std::uint64_t const> descriptors) {
  Sites sites;
  std::string_view bytes(static_cast<char const*>(static_cast<void const*>(descriptors.data())),
                         descriptors.size_bytes());
  while (bytes.size() >= sizeof(Descriptor)) {
    Descriptor lead;
    std::memcpy(&lead, bytes.data(), sizeof lead);
    std::optional<Site> site = siteAt(bytes, lead);
    if (!site) break;
    sites.emplace(lead.id, *std::move(site));
    bytes.remove_prefix(lead.bytes);
  }
  return sites;
}

std::string messageText(Site const& site, std::string_view arguments) {
  Store store;
  for (char const kind : site.kinds) {
    if (!push(store, static_cast<ArgumentKind>(kind), arguments)) store.push_back(fmt::string_view("<cut>"));
  }
  try {
    fmt::memory_buffer text;
    auto const result = fmt::vformat_to_n(std::back_inserter(text), kMaxTextBytes, site.format, store);
    return std::string(text.data(), std::min(result.size, text.size()));
  } catch (std::exception const& failure) {
    return fmt::format("{} (not formatted: {})", site.format, failure.what());
  }
}

}  // namespace FastLog
