#include "platform/memory/Notify.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Notify = Mem::Notify<int, std::string>;

TEST(NotifyTest, WhatIsNotWantedDoesNothingWhenCalled) {
  Notify const silent;
  std::string const value = "value";
  EXPECT_NO_THROW({
    silent.valueChanged(value, nullptr);
    silent.keyChanged(1);
    silent.entryChanged(1, &value);
    silent.mountStatusChanged();
    silent.quiescedChanged(true);
  });
}

TEST(NotifyTest, HandlersStandInTheOrderOfTheBundle) {
  std::string seen;
  Notify const notify{[&](std::string const& value, std::string const*) { seen += "value " + value; },
                      [&](int const& key) { seen += ", key " + std::to_string(key); },
                      [&](int const& key, std::string const* value) {
                        seen += ", entry " + std::to_string(key) + (value == nullptr ? " removed" : "");
                      },
                      [&] { seen += ", mount status"; },
                      [&](bool quiesced) { seen += quiesced ? ", quiesced" : ", not quiesced"; }};
  notify.valueChanged("v", nullptr);
  notify.keyChanged(1);
  notify.entryChanged(2, nullptr);
  notify.mountStatusChanged();
  notify.quiescedChanged(true);
  EXPECT_EQ(seen, "value v, key 1, entry 2 removed, mount status, quiesced");
}

}  // namespace
