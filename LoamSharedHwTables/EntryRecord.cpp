#include "LoamSharedHwTables/EntryRecord.h"

#include <fmt/format.h>

#include <array>
#include <iterator>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace LoamSharedHwTables {
namespace {

using BitmapBytes = std::array<std::uint8_t, kMaxBitmapWidth / 8>;

}  // namespace

void throwDataByte0IndexOutOfRange(std::string_view typeName) {
  DOVEL_THROW(Dovel::RangeException, "DataByte0Index", "{0}::value < {0}::min or > {0}::max not allowed",
              typeName);
}

void failStringConstructor(std::string_view className) {
  Dovel::fmassert("Entry", __FILE__, __func__, __LINE__,
                  "\"No String constructor for {} - has collection\" == nullptr", className);
}

Keel::PerUnitBitmap bitmapFromBits(std::uint8_t const* data, std::size_t dataBytes, unsigned low,
                                   unsigned width) {
  BitmapBytes local{};
  std::size_t const bytes = (width + 7) / 8;
  Detail::copyBits(local.data(), bytes, data, dataBytes, width, 0, low);
  Keel::PerUnitBitmap bitmap;
  for (std::size_t i = 0; i < bytes; ++i) bitmap.bitsOr(i * 8, local[i], 8);
  return bitmap;
}

void bitmapToBits(Keel::PerUnitBitmap const& bitmap, std::uint8_t* data, std::size_t dataBytes, unsigned low,
                  unsigned width) {
  BitmapBytes local{};
  std::size_t const bytes = (width + 7) / 8;
  std::copy_n(bitmap.bytes().begin(), std::min(bytes, bitmap.bytes().size()), local.begin());
  Detail::copyBits(data, dataBytes, local.data(), bytes, width, low, 0);
}

void wholeBitmapToBits(Keel::PerUnitBitmap const& bitmap, std::uint8_t* data, std::size_t dataBytes,
                       unsigned low, unsigned width) {
  static_cast<void>(bitmap.bytes().at((width + 7) / 8 - 1));
  bitmapToBits(bitmap, data, dataBytes, low, width);
}

namespace Impl {

Dovel::String entryText(std::string_view typeName, Dovel::String const& key,
                        std::span<std::uint8_t const> bytes, std::string_view view) {
  std::string text = fmt::format("{}(entryKey:{},dataByte0:", typeName, key.view());
  for (std::uint8_t const byte : bytes) fmt::format_to(std::back_inserter(text), "{:02x}", byte);
  if (!view.empty()) text.append(",viewT:").append(view);
  return text + ")";
}

}  // namespace Impl
}  // namespace LoamSharedHwTables
