#include "Vault/StoredType.h"

#include <gtest/gtest.h>

namespace {

using Vault::StoredType;

TEST(StoredType, IsFoundByItsNameWhileItIsRegistered) {
  StoredType type{};
  type.typeName = "Test::Found";
  {
    StoredType::Registration const registration(type);
    EXPECT_EQ(StoredType::find("Test::Found"), &type);
    EXPECT_EQ(StoredType::find("Test::Foun"), nullptr);
  }
  EXPECT_EQ(StoredType::find("Test::Found"), nullptr);
}

}  // namespace
