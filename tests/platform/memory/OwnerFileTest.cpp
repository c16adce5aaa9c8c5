#include "platform/memory/OwnerFile.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "platform/memory/Crc32c.h"
#include "platform/memory/ProcessIdentity.h"
#include "runtime/Dovel/Exception.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"
#include "tests/support/Seed.h"

namespace {

using SharedMem::OwnerRecord;
using SharedMem::WireletInfo;
using testing::AllOf;
using testing::HasSubstr;
using TestSupport::contentOf;
using TestSupport::handler;
using TestSupport::isThere;
using TestSupport::messageOf;
using TestSupport::rootPath;
using TestSupport::statusOf;
using TestSupport::writeFile;

constexpr std::size_t kRecord = sizeof(OwnerRecord);

TEST(Crc32c, IsThatOfTheStandard) {
  EXPECT_EQ(Mem::crc32c("123456789", 9), 0xe3069283U);
  EXPECT_EQ(Mem::crc32c(std::string(32, '\0').data(), 32), 0x8a9136aaU);
  EXPECT_EQ(Mem::crc32c("", 0), 0U);
}

TEST(ProcessIdentity, TellsThisProcessAndItsBoot) {
  auto const self = Mem::ProcessIdentity::self();
  EXPECT_EQ(self.pid, ::getpid());
  EXPECT_EQ(self, Mem::ProcessIdentity::self());
  double uptime = 0;
  std::ifstream("/proc/uptime") >> uptime;
  double const age =
      uptime - static_cast<double>(self.startTime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  EXPECT_GT(age, -1);
  EXPECT_LT(age, 3600);  // of a test program
  std::string const boot = contentOf("/proc/sys/kernel/random/boot_id");
  EXPECT_EQ(Mem::bootId().view(), boot.substr(0, boot.size() - 1));
}

struct OwnerFile : testing::Test {
  TestSupport::StoreDir dir;
  std::string const path = dir.file("owner");

  SharedMem::OwnerFile owner(bool create = true) const {
    return {handler(), rootPath(dir.path()), false, create};
  }
  static WireletInfo socket(char const* name) {
    WireletInfo info;
    info.socketNameIs(name);
    return info;
  }
  std::string whyInvalid() const {
    Dovel::String error;
    return owner().validate(error) ? "valid" : error.data();
  }
};

OwnerRecord recordIn(std::string const& content, std::size_t index) {
  OwnerRecord record;
  EXPECT_GE(content.size(), (index + 1) * kRecord);
  std::memcpy(&record, content.data() + index * kRecord, kRecord);
  return record;
}
std::string bytesOf(OwnerRecord record) {
  record.crc = record.computedCrc();
  return {reinterpret_cast<char const*>(&record), kRecord};
}

TEST_F(OwnerFile, FreshOneIsInitialisedAndValid) {
  auto const file = owner();
  EXPECT_TRUE(file.validate());
  EXPECT_TRUE(file.validateFile());
  EXPECT_TRUE(file.exists());
  EXPECT_EQ(file.typeName(), "");
  EXPECT_EQ(file.sharedMemType(), 0U);
  EXPECT_FALSE(file.wiped());
  EXPECT_EQ(file.wireletInfo(), WireletInfo());
  EXPECT_EQ(statusOf(path).st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(OwnerFile, EmptyOneIsInitialisedAndValid) {
  writeFile(path, "");
  EXPECT_TRUE(owner().validate());
}

TEST_F(OwnerFile, WithoutCreationAnAbsentOneStaysAbsent) {
  auto file = owner(false);
  EXPECT_FALSE(file.exists());
  EXPECT_FALSE(file.validate());
  EXPECT_EQ(file.typeName(), "");
  EXPECT_EQ(file.pid(), 0);
  EXPECT_EQ(file.wireletInfo(), WireletInfo());
  file.typeNameIs("t");
  file.wireletInfoIs(socket("s"));
  EXPECT_TRUE(dir.files().empty());
}

TEST_F(OwnerFile, KeepsWhatItIsTold) {
  auto file = owner();
  file.typeNameIs("bcm::Entry");
  file.sharedMemTypeIs(1);
  file.wipedIs(true);
  file.wireletInfoIs(socket("@x/1"));
  auto const read = owner(false);
  EXPECT_EQ(read.typeName(), "bcm::Entry");
  EXPECT_EQ(read.sharedMemType(), 1U);
  EXPECT_TRUE(read.wiped());
  EXPECT_EQ(read.wireletInfo().socketName(), "@x/1");
  EXPECT_EQ(read.pid(), ::getpid());
  EXPECT_EQ(read.startTime(), Mem::ProcessIdentity::self().startTime);
  EXPECT_EQ(read.bootId(), Mem::bootId());
  file.wipedIs(false);
  file.wireletInfoIs({});
  EXPECT_FALSE(read.wiped());
  EXPECT_EQ(read.wireletInfo(), WireletInfo());
  EXPECT_EQ(statusOf(path).st_size, static_cast<off_t>(2 * kRecord));
}

TEST_F(OwnerFile, LongNamesAreCutToTheirField) {
  auto file = owner();
  file.typeNameIs(std::string(300, 'n'));
  EXPECT_EQ(file.typeName().view(), std::string(255, 'n'));
  EXPECT_TRUE(file.validate());
}

TEST_F(OwnerFile, NameThatNoSocketCanHaveIsRefused) {
  WireletInfo info;
  info.socketNameIs(std::string(107, 's'));
  auto file = owner();
  file.wireletInfoIs(info);
  EXPECT_EQ(file.wireletInfo(), info);
  EXPECT_THROW(info.socketNameIs(std::string(108, 's')), Dovel::RangeException);
  EXPECT_EQ(info.toString().view(), "socketName:" + std::string(107, 's'));
}

TEST_F(OwnerFile, ChangeIsWrittenOverTheOlderRecord) {
  auto file = owner();
  std::array<std::uint64_t, 2> sequences{1, 0};
  for (std::uint64_t change = 2; change < 8; ++change) {
    file.typeNameIs("n");
    sequences[(change + 1) % 2] = change;
    std::string const content = contentOf(path);
    EXPECT_EQ(recordIn(content, 0).sequence, sequences[0]);
    EXPECT_EQ(recordIn(content, 1).sequence, sequences[1]);
  }
}

TEST_F(OwnerFile, ChangeTornAtAnyByteLosesNothing) {
  auto file = owner();
  file.typeNameIs("before");
  file.typeNameIs("before");
  std::string const before = contentOf(path);
  file.typeNameIs("after");
  std::string const after = contentOf(path);
  ASSERT_EQ(before.size(), 2 * kRecord);
  std::size_t const at = before.substr(0, kRecord) == after.substr(0, kRecord) ? kRecord : 0;
  for (std::size_t done = 0; done <= kRecord; ++done) {
    writeFile(path, std::string(before).replace(at, done, after, at, done));
    ASSERT_TRUE(file.validate()) << done;
    ASSERT_EQ(file.typeName(), done == kRecord ? "after" : "before") << done;
    file.sharedMemTypeIs(1);
    ASSERT_EQ(file.typeName(), done == kRecord ? "after" : "before") << done;
  }
}

TEST_F(OwnerFile, CutAtAnyLengthItIsWholeInvalidOrFresh) {
  owner().typeNameIs("name");
  std::string const content = contentOf(path);
  for (std::size_t length = 0; length <= content.size(); ++length) {
    writeFile(path, content.substr(0, length));
    auto file = owner();
    ASSERT_EQ(file.validate(), length == 0 || length >= kRecord) << length;
    if (length >= kRecord) {
      ASSERT_EQ(file.typeName(), length == content.size() ? "name" : "") << length;
    }
    file.typeNameIs("new");
    ASSERT_EQ(file.typeName(), "new") << length;
  }
}

TEST_F(OwnerFile, AnyChangedByteOfTheOnlyRecordIsFound) {
  owner();
  std::string const content = contentOf(path);
  ASSERT_EQ(content.size(), kRecord);
  for (std::size_t at = 0; at < kRecord; ++at) {
    std::string damaged = content;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
    writeFile(path, damaged);
    ASSERT_FALSE(owner().validate()) << at;
  }
}

TEST_F(OwnerFile, TwoDamagedRecordsAreToldWithWhatIsWrongWithEach) {
  auto file = owner();
  file.typeNameIs("n");
  std::string content = contentOf(path);
  content[0] = 'x';
  content[kRecord + 500] = 'x';
  writeFile(path, content);
  EXPECT_EQ(whyInvalid(), "bad owner file " + path + ": first copy bad magic, second copy bad checksum");
  content[kRecord + 4] = 'x';
  writeFile(path, content.substr(0, kRecord + 700));
  EXPECT_EQ(whyInvalid(), "bad owner file " + path + ": first copy bad magic, second copy short");
}

TEST_F(OwnerFile, ReadingADamagedOneIsCorruptionDetected) {
  writeFile(path, std::string(2 * kRecord, 'x'));
  auto const file = owner();
  for (auto const& read :
       std::initializer_list<std::function<void()>>{[&] { file.typeName(); }, [&] { file.wiped(); },
                                                    [&] { file.wireletInfo(); }, [&] { file.pid(); }}) {
    EXPECT_THAT(messageOf<Dovel::CorruptionDetectedException>(read),
                AllOf(HasSubstr(path), HasSubstr("first copy bad magic")));
  }
}

TEST_F(OwnerFile, RecordOfAnotherVersionIsInvalid) {
  OwnerRecord record;
  record.version = 2;
  writeFile(path, bytesOf(record));
  EXPECT_THAT(whyInvalid(), HasSubstr("first copy bad version"));
}

TEST_F(OwnerFile, RecordOfAnotherBootIsInvalidAndStillReadable) {
  OwnerRecord record;
  OwnerRecord::setText(record.bootId, sizeof record.bootId, "00000000-1111");
  OwnerRecord::setText(record.typeName, sizeof record.typeName, "name");
  writeFile(path, bytesOf(record));
  EXPECT_THAT(whyInvalid(), HasSubstr("boot id:00000000-1111 wanted:" + std::string(Mem::bootId().view())));
  EXPECT_EQ(owner().typeName(), "name");
}

TEST_F(OwnerFile, UnknownKindOfSharedMemoryIsInvalid) {
  auto file = owner();
  for (unsigned type : {0U, 1U}) {
    file.sharedMemTypeIs(type);
    EXPECT_TRUE(file.validate());
  }
  file.sharedMemTypeIs(2);
  EXPECT_THAT(whyInvalid(), HasSubstr("shared-memory type:2"));
}

TEST_F(OwnerFile, InvalidOneStaysInvalidUntilTheWipeIsRecorded) {
  OwnerRecord otherBoot;
  OwnerRecord::setText(otherBoot.bootId, sizeof otherBoot.bootId, "0-0");
  OwnerRecord otherKind;
  OwnerRecord::setText(otherKind.bootId, sizeof otherKind.bootId, Mem::bootId());
  otherKind.sharedMemType = 7;
  for (std::string const& content :
       {std::string(2 * kRecord, 'x'), std::string(5, 'x'), std::string(2 * kRecord, '\0'),
        bytesOf(otherBoot), bytesOf(otherKind)}) {
    writeFile(path, content);
    auto file = owner();
    file.typeNameIs("name");
    file.sharedMemTypeIs(1);
    file.wireletInfoIs(socket("s"));
    EXPECT_FALSE(file.validate());
    EXPECT_EQ(file.typeName(), "name");
    file.wipedIs(true);
    EXPECT_EQ(whyInvalid(), "valid");
    EXPECT_EQ(file.typeName(), "name");
    EXPECT_EQ(file.sharedMemType(), 1U);
  }
}

TEST_F(OwnerFile, SequenceMayPassItsLargestNumber) {
  OwnerRecord record;
  record.sequence = ~std::uint64_t{0};
  OwnerRecord::setText(record.bootId, sizeof record.bootId, Mem::bootId());
  writeFile(path, bytesOf(record));
  auto file = owner();
  for (char const* name : {"a", "b", "c"}) {
    file.typeNameIs(name);
    EXPECT_EQ(file.typeName(), name);
  }
}

TEST_F(OwnerFile, TextsWithoutTheirEndAreReadToTheEndOfTheirField) {
  OwnerRecord record;
  std::memset(record.bootId, 'b', sizeof record.bootId);
  std::memset(record.socketName, 's', sizeof record.socketName);
  std::memset(record.typeName, 't', sizeof record.typeName);
  writeFile(path, bytesOf(record));
  auto const file = owner();
  EXPECT_EQ(file.typeName().view(), std::string(256, 't'));
  EXPECT_EQ(file.wireletInfo().socketName().view(), std::string(107, 's'));
  EXPECT_FALSE(file.validate());
}

TEST_F(OwnerFile, HeaderIsToldForPeopleWhateverTheFileHolds) {
  EXPECT_THAT(owner(false).headerToString().data(), HasSubstr("No such file"));
  auto file = owner();
  file.typeNameIs("bcm::Entry");
  file.wireletInfoIs(socket("@s"));
  EXPECT_THAT(file.headerToString().data(),
              AllOf(HasSubstr("first copy: sound"), HasSubstr("second copy: sound"), HasSubstr("sequence:3"),
                    HasSubstr("typeName:bcm::Entry"), HasSubstr("socketName:@s"),
                    HasSubstr("pid:" + std::to_string(::getpid())), HasSubstr("sharedMemType:0")));
  std::string content = contentOf(path);
  content.replace(188, 4, "\33[2J");
  writeFile(path, content);
  EXPECT_THAT(file.headerToString().data(), AllOf(HasSubstr("first copy: bad checksum"), HasSubstr("?[2J")));
  EXPECT_EQ(file.headerToString().view().find('\33'), std::string_view::npos);
}

TEST_F(OwnerFile, RandomBytesAreInvalidOrWhole) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  for (int round = 0; round < 200; ++round) {
    std::string content(random() % 3000 + 1, '\0');
    for (char& byte : content) byte = static_cast<char>(random());
    writeFile(path, content);
    auto file = owner();
    ASSERT_FALSE(file.validate());
    ASSERT_FALSE(file.headerToString().empty());
    file.wipedIs(true);
    ASSERT_TRUE(file.validate());
  }
}

TEST_F(OwnerFile, WhatIsNoFileIsInvalidAndCantBeWritten) {
  for (auto const& [name, make] : TestSupport::notFiles()) {
    if (name == "link to nothing") continue;  // another test's
    make(path);
    auto file = owner();
    EXPECT_THAT(whyInvalid(), HasSubstr("cannot open " + path)) << name;
    EXPECT_THROW(file.typeNameIs("n"), Dovel::InvalidInitializeException) << name;
    EXPECT_THROW(file.typeName(), Dovel::CorruptionDetectedException) << name;
    EXPECT_FALSE(file.headerToString().empty()) << name;
    ASSERT_EQ(::remove(path.c_str()), 0) << name;
  }
}

TEST_F(OwnerFile, LocalTableHasNone) {
  SharedMem::OwnerFile local(handler(), rootPath(dir.path()), true);
  auto const lock = local.lock();
  local.typeNameIs("n");
  local.wipedIs(true);
  EXPECT_TRUE(local.validate());
  EXPECT_TRUE(local.validateFile());
  EXPECT_FALSE(local.exists());
  EXPECT_EQ(local.typeName(), "");
  EXPECT_EQ(local.wireletInfo(), WireletInfo());
  EXPECT_TRUE(dir.files().empty());
}

TEST_F(OwnerFile, LockKeepsOthersOutUntilItIsReleased) {
  auto file = owner();
  auto held = file.lock();
  TestSupport::Signpost waits;
  TestSupport::Signpost has;
  pid_t const child = TestSupport::forked([&] {
    auto other = owner();
    waits.tell();
    auto const lock = other.lock();
    MUST(other.typeName() == "told under the lock");
    has.tell();
  });
  ASSERT_TRUE(waits.wait());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  file.typeNameIs("told under the lock");
  held.release();
  EXPECT_TRUE(has.wait());
  EXPECT_EQ(TestSupport::waitedFor(child), 0);
  EXPECT_TRUE(isThere(dir.file(".owner.lock")));
}

TEST_F(OwnerFile, LockOfADeadProcessIsFree) {
  pid_t const child = TestSupport::forked([&] {
    auto const lock = owner().lock();
    ::raise(SIGKILL);
  });
  EXPECT_TRUE(WIFSIGNALED(TestSupport::waitedFor(child)));
  auto const lock = owner().lock();
}

TEST_F(OwnerFile, LockHeldForeverIsAnExceptionAfterSomeSeconds) {
  auto const file = owner();
  auto const held = file.lock();
  EXPECT_THAT(messageOf<Dovel::NoPermissionException>([&] { file.lock(); }),
              HasSubstr(dir.file(".owner.lock") + " is held by another"));
}

TEST_F(OwnerFile, OfProcessesThatMakeItAtOnceOneInitialisesIt) {
  for (int round = 0; round < 100; ++round) {
    std::filesystem::remove(path);
    TestSupport::Signpost start;
    std::array<pid_t, 4> children{};
    for (pid_t& child : children) {
      child = TestSupport::forked([&] {
        start.stopTelling();
        start.wait();
        MUST(owner().validate());
      });
    }
    start.stopTelling();
    for (pid_t const child : children) EXPECT_EQ(TestSupport::waitedFor(child), 0);
    std::string const content = contentOf(path);
    ASSERT_EQ(content.size(), kRecord);
    ASSERT_EQ(recordIn(content, 0).sequence, 1U);
  }
}

}  // namespace
