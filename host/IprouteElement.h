// What iproute2 prints with -j: an array of elements, which are objects. Each knows where it stands, so that
// all that throws here, an InputError, names file, element, field, value and what is legal. Plain values over
// a file that outlives them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/InputError.h"
#include "host/OperationInput.h"

namespace Host {

class IprouteElement {
 public:
  // `json` is refused where it is no object.
  IprouteElement(std::string where, Json const& json);

  std::string const& where() const { return where_; }
  // The same element, by a name that people know it by.
  IprouteElement named(std::string_view name) const;
  // Left in the place of what a filter took out.
  bool isEmpty() const { return json_->empty(); }
  bool has(std::string_view name) const { return json_->contains(name); }
  // Whether a flag stands there.
  bool isSet(std::string_view name) const;

  // These must be there.
  std::string text(std::string_view name) const;
  std::string interfaceName(std::string_view name) const;
  std::uint64_t number(std::string_view name, NumberRange legal) const;
  IprouteElement object(std::string_view name) const;
  std::vector<IprouteElement> elements(std::string_view name) const;
  std::vector<std::string> texts(std::string_view name) const;

  // The text of a member that may be missing, or is another one than a text: empty then.
  std::string textOrNone(std::string_view name) const;
  // Says that the member's value is not what is legal.
  [[noreturn]] void refuse(std::string_view name, std::string_view legal) const;

 private:
  Json const& member(std::string_view name, std::string_view legal) const;

  std::string where_;
  Json const* json_;
};

class IprouteFile {
 public:
  // "-" is standard input. Throws Dovel::RuntimeException where it can't be read, InputError where it is no
  // array in JSON.
  explicit IprouteFile(std::string const& path);

  std::string const& name() const { return name_; }
  // Those that are not empty.
  std::vector<IprouteElement> elements() const;

 private:
  std::string const name_;
  Json const json_;
};

}  // namespace Host
