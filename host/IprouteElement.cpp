#include "host/IprouteElement.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/Output.h"
#include "host/WholeFile.h"

namespace Host {
namespace {

constexpr std::size_t kMostTold = 80;
// Of the kernel.
constexpr std::size_t kLongestName = 15;

// A whole object may stand where a number belongs.
std::string told(Json const& value) {
  std::string const text = textOf(value);
  return text.size() <= kMostTold ? text : text.substr(0, kMostTold) + "...";
}

bool isInterfaceName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && std::ranges::all_of(name, [](char c) {
    return c != '/' && c != ':' && c != ' ' && static_cast<unsigned char>(c) >= 0x20 && c != 0x7f;
  });
}

Json parsed(std::string const& name, std::string const& text) {
  try {
    Json json = Json::parse(text);
    if (!json.is_array())
      throw InputError(
          fmt::format("{}: {} is not an array, as iproute2 prints it with -j", name, told(json)));
    return json;
  } catch (Json::parse_error const& wrong) {
    throw InputError(fmt::format("{}: not JSON: wrong at {}", name, placeOf(text, wrong.byte)));
  }
}

}  // namespace

IprouteElement::IprouteElement(std::string where, Json const& json) : where_(std::move(where)), json_(&json) {
  if (!json.is_object()) throw InputError(fmt::format("{}: {} is not an object", where_, told(json)));
}

IprouteElement IprouteElement::named(std::string_view name) const {
  IprouteElement same = *this;
  same.where_ += fmt::format(" ({})", oneLine(name));
  return same;
}

bool IprouteElement::isSet(std::string_view name) const {
  auto const found = json_->find(name);
  return found != json_->end() && *found != Json(false);
}

Json const& IprouteElement::member(std::string_view name, std::string_view legal) const {
  auto const found = json_->find(name);
  if (found != json_->end()) return *found;
  throw InputError(fmt::format("{}: {} is missing; legal is {}", where_, name, legal));
}

void IprouteElement::refuse(std::string_view name, std::string_view legal) const {
  throw InputError(fmt::format("{}: {}: {} is not {}", where_, name, told(member(name, legal)), legal));
}

std::string IprouteElement::textOrNone(std::string_view name) const {
  auto const found = json_->find(name);
  return found != json_->end() && found->is_string() ? found->get<std::string>() : "";
}

std::string IprouteElement::text(std::string_view name) const {
  if (!member(name, "a text").is_string()) refuse(name, "a text");
  return textOrNone(name);
}

std::string IprouteElement::interfaceName(std::string_view name) const {
  std::string const legal =
      fmt::format("the name of an interface: 1 to {} characters without / : and blanks", kLongestName);
  Json const& value = member(name, legal);
  if (!value.is_string() || !isInterfaceName(value.get_ref<std::string const&>())) refuse(name, legal);
  return value.get<std::string>();
}

std::uint64_t IprouteElement::number(std::string_view name, NumberRange legal) const {
  std::string const range = fmt::format("{} to {}", legal.min, legal.max);
  Json const& value = member(name, range);
  if (value.is_number_unsigned()) {
    auto const number = value.get<std::uint64_t>();
    if (number >= legal.min && number <= legal.max) return number;
  }
  refuse(name, range);
}

IprouteElement IprouteElement::object(std::string_view name) const {
  return {fmt::format("{}: {}", where_, name), member(name, "an object")};
}

std::vector<IprouteElement> IprouteElement::elements(std::string_view name) const {
  Json const& array = member(name, "an array");
  if (!array.is_array()) refuse(name, "an array");
  std::vector<IprouteElement> all;
  all.reserve(array.size());
  for (Json const& one : array)
    all.emplace_back(fmt::format("{}: {}[{}]", where_, name, all.size() + 1), one);
  return all;
}

std::vector<std::string> IprouteElement::texts(std::string_view name) const {
  Json const& array = member(name, "an array of texts");
  bool const isLegal = array.is_array() && std::ranges::all_of(array, &Json::is_string);
  if (!isLegal) refuse(name, "an array of texts");
  return array.get<std::vector<std::string>>();
}

IprouteFile::IprouteFile(std::string const& path)
    : name_(path == "-" ? "standard input" : oneLine(path)), json_(parsed(name_, wholeFile(path))) {}

std::vector<IprouteElement> IprouteFile::elements() const {
  std::vector<IprouteElement> all;
  std::size_t nth = 0;
  for (Json const& one : json_) {
    IprouteElement element(fmt::format("{}: element {}", name_, ++nth), one);
    if (!element.isEmpty()) all.push_back(std::move(element));
  }
  return all;
}

}  // namespace Host
