#include "runtime/Dovel/Toggle.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

void readToggles() {
  std::string answer;
  for (bool defaultValue : {false, true}) {
    answer += Dovel::getToggleState("FullCoreDump", "Vault.json", defaultValue) ? "on " : "off ";
  }
  ::fputs(answer.c_str(), stdout);
  ::fflush(stdout);
  ::fputs(answer.c_str(), stderr);
}
TestSupport::ChildRole const readTogglesRole("readToggles", readToggles);

class Toggle : public ::testing::Test {
 protected:
  void file(std::string const& text) { TestSupport::writeFile(directory_.file("Vault.json"), text); }
  std::string answers() const { return run({{"HWTABLES_TRACE", "Toggle/0"}}); }
  std::string reasons() const { return run({{"HWTABLES_TRACE", "Toggle/1"}}); }

  // Both defaults came back, and a level 1 trace said why.
  void expectDefault(std::string const& reason) {
    EXPECT_EQ(answers(), "off on ");
    EXPECT_THAT(reasons(), AllOf(HasSubstr(" Toggle 1 runtime/Dovel/Toggle.cpp:"),
                                 HasSubstr("toggle FullCoreDump keeps its default true: " +
                                           directory_.file("Vault.json") + " " + reason)));
  }

  TestSupport::TempDir const directory_;

 private:
  std::string run(std::map<std::string, std::string> environment) const {
    environment["HWTABLES_TOGGLES"] = directory_.path();
    return TestSupport::runChild("readToggles", environment).errors();
  }
};

TEST_F(Toggle, ReadsTheFileWhateverTheDefault) {
  file(R"({"Other": 3, "FullCoreDump": true})");
  EXPECT_EQ(reasons(), "on on ");
  file(R"({"FullCoreDump": false})");
  EXPECT_EQ(reasons(), "off off ");
}

TEST_F(Toggle, KeepsItsDefaultWithoutAFile) { expectDefault("cannot be opened: No such file or directory"); }

TEST_F(Toggle, KeepsItsDefaultWhereTheFileIsMalformed) {
  for (char const* text : {"", "{", "{\"FullCoreDump\": true,}", "{\"FullCoreDump\": yes}"}) {
    file(text);
    expectDefault("[json.exception.parse_error");
  }
  file("[true]");
  expectDefault("holds no JSON object");
}

TEST_F(Toggle, KeepsItsDefaultWhereTheFileDoesNotNameIt) {
  file("{}");
  expectDefault("does not name the toggle");
}

TEST_F(Toggle, KeepsItsDefaultWhereTheValueIsNotABoolean) {
  for (char const* value : {"1", "\"true\"", "null", "[true]"}) {
    file(std::string("{\"FullCoreDump\": ") + value + "}");
    expectDefault(std::string("gives ") + value + ", neither true nor false");
  }
}

TEST_F(Toggle, KeepsItsDefaultWhereTheFileIsAFolder) {
  ASSERT_EQ(::mkdir(directory_.file("Vault.json").c_str(), 0755), 0);
  expectDefault("");
}

TEST(ToggleDirectory, IsTheSystemsOneWhereNoneIsGiven) {
  if (::access("/etc/hwtables/Vault.json", F_OK) == 0) GTEST_SKIP() << "this machine has toggles of its own";
  for (bool empty : {false, true}) {
    std::map<std::string, std::string> environment{{"HWTABLES_TRACE", "Toggle/1"}};
    if (empty) environment["HWTABLES_TOGGLES"] = "";
    EXPECT_THAT(TestSupport::runChild("readToggles", environment).errors(),
                HasSubstr("true: /etc/hwtables/Vault.json cannot be opened"));
  }
}

}  // namespace
