// The types that stores hold, by name, for tools that read stores without being compiled with their types:
// how to hash, order and print a record of which there are only bytes. A bundle's units register their types
// while it is loaded, and withdraw when it is unloaded. Any thread may ask; loading and unloading serialise
// themselves.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/memory/RootPath.h"
#include "runtime/Dovel/String.h"

namespace Vault {

// Takes the fields of a record in their order.
class FieldSink {
 public:
  virtual void number(std::string_view name, std::uint64_t value) = 0;
  // A field wider than a number, in hex from the highest digit: "0x0f00".
  virtual void bits(std::string_view name, std::string_view hex) = 0;

 protected:
  ~FieldSink() = default;
};

// A reader of one table, which its writer may be changing meanwhile. One thread.
class StoredReader {
 public:
  virtual ~StoredReader();

  // False where there is no complete table of the type.
  virtual bool attach() = 0;
  // The record of the key, valid until the next call; null where there is none. Keys are told as keyText()
  // prints them, or only what that has between the brackets. Throws Dovel::Exception for a text that is no
  // key, and for damage.
  virtual std::byte const* find(std::string_view key) = 0;
};

// All functions work on any bytes; `value` needs no alignment.
struct StoredType {
  std::string_view typeName;
  std::uint32_t valueSize;
  std::uint32_t (*keyHash)(std::byte const* value, std::uint32_t seed);
  std::strong_ordering (*compareKeys)(std::byte const* a, std::byte const* b);
  Dovel::String (*keyText)(std::byte const* value);
  void (*fields)(std::byte const* value, FieldSink& sink);
  std::unique_ptr<StoredReader> (*reader)(Mem::RootPath const& rootPath) = nullptr;

  // Puts a type in for as long as it lives. The type must outlive it.
  class Registration {
   public:
    explicit Registration(StoredType const& type);
    ~Registration();
    Registration(Registration const&) = delete;
    Registration& operator=(Registration const&) = delete;

   private:
    StoredType const* const type_;
  };

  // Null where no bundle that is loaded knows the name.
  static StoredType const* find(std::string_view typeName);
};

}  // namespace Vault
