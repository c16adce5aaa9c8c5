// Files of a table that have gone wrong, one at a time: what an attach makes of each.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>
#include <random>

#include "Vault/Util.h"
#include "platform/memory/ControlFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Message.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using Record32 = TestRecord<ChosenKey, 32>;
using Store32 = Store<Record32>;
using Writer32 = WriterOf<Record32>;

enum class Outcome { adopted, wiped, refused };

struct Damage {
  char const* name;
  std::function<void(std::string const& path)> apply;
  // Of the slot file, the bucket file, the owner file and the generation file.
  std::array<Outcome, 4> outcomes;
};
void PrintTo(Damage const& damage, std::ostream* out) { *out << damage.name; }

constexpr std::array<char const*, 6> kFiles{"slots", "buckets", "owner",
                                            "ember", "control", "corruption-detected"};

void replaceBy(std::string const& path, std::function<void()> const& make) {
  std::filesystem::remove(path);
  make();
}

void randomize(std::string const& path) {
  std::mt19937_64 random(seed() ^ std::hash<std::string>()(path));
  std::string bytes = bytesOf(path);
  for (char& byte : bytes) byte = static_cast<char>(random());
  poke(path, 0, bytes.data(), bytes.size());
}

Damage const kDamages[] = {
    {"Missing",
     [](auto const& path) { std::filesystem::remove(path); },
     {Outcome::wiped, Outcome::wiped, Outcome::adopted, Outcome::wiped}},
    {"Empty",
     [](auto const& path) { std::filesystem::resize_file(path, 0); },
     {Outcome::wiped, Outcome::wiped, Outcome::adopted, Outcome::wiped}},
    {"Short",
     [](auto const& path) { std::filesystem::resize_file(path, 9); },
     {Outcome::wiped, Outcome::wiped, Outcome::wiped, Outcome::wiped}},
    {"Long",
     [](auto const& path) { std::filesystem::resize_file(path, std::filesystem::file_size(path) + 12345); },
     {Outcome::adopted, Outcome::adopted, Outcome::adopted, Outcome::adopted}},
    {"Random", randomize, {Outcome::wiped, Outcome::wiped, Outcome::wiped, Outcome::wiped}},
    {"ADirectory",
     [](auto const& path) { replaceBy(path, [&] { std::filesystem::create_directory(path); }); },
     {Outcome::refused, Outcome::refused, Outcome::refused, Outcome::refused}},
    {"APipe",
     [](auto const& path) { replaceBy(path, [&] { ::mkfifo(path.c_str(), 0644); }); },
     {Outcome::refused, Outcome::refused, Outcome::refused, Outcome::refused}},
    {"ALink",
     [](auto const& path) {
       std::filesystem::rename(path, path + ".elsewhere");
       std::filesystem::create_symlink(path + ".elsewhere", path);
     },
     {Outcome::refused, Outcome::refused, Outcome::refused, Outcome::refused}},
};

class DamagedFile : public testing::TestWithParam<std::tuple<Damage, std::size_t>> {
 protected:
  void SetUp() override {
    for (std::uint32_t number = 0; number < 3; ++number) store_.write({number, number});
    Mem::Util::createControlFile(storeHandler(), store_.root());
    ember_ = store_->emberId();
    store_.close();
    Vault::Util::writeCorruptionFile(storeHandler(), store_.root(), "found by a test");
  }
  Outcome attach() {
    try {
      store_.open();
    } catch (Dovel::Exception const& refusal) {
      EXPECT_THAT(refusal.what(), HasSubstr(name_));
      return Outcome::refused;
    }
    EXPECT_TRUE(store_->validate());
    bool const adopted = store_->emberId() == ember_;
    EXPECT_EQ(store_.image().expectSound(), adopted ? 3U : 0U);
    for (std::uint32_t number = 10; number < 200; ++number) store_.write({number, number});
    store_.reopen();
    EXPECT_EQ(store_->members(), adopted ? 193U : 190U);
    return adopted ? Outcome::adopted : Outcome::wiped;
  }

  std::string const name_ = kFiles[std::get<1>(GetParam())];
  Store32 store_;
  SharedMem::EmberId ember_;
};

TEST_P(DamagedFile, HasTheOutcomeThatFits) {
  PRINT_SEED_ON_FAILURE();
  auto const& [damage, file] = GetParam();
  damage.apply(store_.file(name_));
  EXPECT_EQ(attach(), file < 4 ? damage.outcomes[file] : Outcome::adopted);
}

std::string nameOf(testing::TestParamInfo<std::tuple<Damage, std::size_t>> const& info) {
  static constexpr std::array<char const*, 6> kNames{"Slots",      "Buckets", "Owner",
                                                     "Generation", "Control", "Marker"};
  return kNames[std::get<1>(info.param)] + std::string("Is") + std::get<0>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(, DamagedFile,
                         testing::Combine(testing::ValuesIn(kDamages), testing::Range<std::size_t>(0, 6)),
                         nameOf);

// Random bytes in part of a file, many times: whatever comes of it, the table works.
TEST(DamagedFiles, WithRandomBytesInThemAreAdoptedOrWipedOrRefused) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(seed());
  Store32 store;
  int wiped = 0;
  for (int round = 0; round < 300; ++round) {
    for (std::uint32_t number = 0; number < 100; ++number) store.write({number, number});
    auto const ember = store->emberId();
    // More than 100 once a key was damaged in a way that no check can see.
    std::uint32_t const members = store->members();
    store.close();
    std::string const path = store.file(kFiles[random() % 4]);
    std::size_t const size = std::filesystem::file_size(path);
    for (std::uint64_t change = random() % 8; change-- > 0;) {
      std::uint64_t const bytes = random();
      std::size_t const at = random() % (random() % 2 == 0 ? size : std::min<std::size_t>(size, 700));
      poke(path, at, &bytes, std::min<std::size_t>(1 + random() % 8, size - at));
    }
    store.open();
    ASSERT_TRUE(store->validate());
    if (store->emberId() != ember) ++wiped;
    ASSERT_EQ(store->members(), store->emberId() == ember ? members : 0U);
    ASSERT_EQ(store.image().expectSound(false), store->members());
    ASSERT_EQ(store.iterated().size(), store->members());
  }
  EXPECT_GT(wiped, 50);
}

constexpr uid_t kNobody = 65534;

// As somebody who may not change, or not even read, one of the files.
void attachesAsNobody() {
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) std::_Exit(77);
  std::string const path = std::getenv("HWTABLES_TEST_TABLE");
  try {
    Writer32 writer(storeHandler(), Mem::RootPath(storeHandler(), path, true), sharedDescriptor(1000));
    writer.initialize("test");
    std::_Exit(writer.members() == 3 ? 10 : 11);
  } catch (Dovel::NoPermissionException const&) {
    std::_Exit(12);
  } catch (Dovel::InvalidInitializeException const&) {
    std::_Exit(13);
  }
}
ChildRole const attachesAsNobodyRole("attachesAsNobody", attachesAsNobody);

class ForeignFile : public testing::TestWithParam<std::tuple<std::size_t, mode_t>> {};

TEST_P(ForeignFile, IsRefusedWhereItIsNeededAndNeverTakenOver) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs the right to become another user";
  auto const [file, mode] = GetParam();
  Store32 store;
  for (std::uint32_t number = 0; number < 3; ++number) store.write({number, number});
  Mem::Util::createControlFile(storeHandler(), store.root());
  store.close();
  Vault::Util::writeCorruptionFile(storeHandler(), store.root(), "found by a test");
  std::string const folder = store.folder().path();
  EXPECT_EQ(::chown(folder.c_str(), kNobody, kNobody), 0);
  for (auto const& entry : std::filesystem::directory_iterator(folder))
    EXPECT_EQ(::chown(entry.path().c_str(), kNobody, kNobody), 0);
  std::string const foreign = store.file(kFiles[file]);
  EXPECT_EQ(::chown(foreign.c_str(), 0, 0), 0);
  EXPECT_EQ(::chmod(foreign.c_str(), mode), 0);
  std::string const before = bytesOf(store.file("slots"));
  ChildResult const child = runChild("attachesAsNobody", {{"HWTABLES_TEST_TABLE", folder}});
  EXPECT_EQ(child.signal, 0);
  if (file >= 4) {
    EXPECT_EQ(child.exitCode, 10) << child.errors();
    return;
  }
  EXPECT_TRUE(child.exitCode == 12 || child.exitCode == 13) << child.exitCode << child.errors();
  EXPECT_EQ(bytesOf(store.file("slots")), before);
  struct stat status {};
  EXPECT_EQ(::stat(foreign.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
}

INSTANTIATE_TEST_SUITE_P(, ForeignFile,
                         testing::Combine(testing::Range<std::size_t>(0, 6),
                                          testing::Values<mode_t>(0600, 0644)),
                         [](auto const& file) {
                           return "Nr" + std::to_string(std::get<0>(file.param)) +
                                  (std::get<1>(file.param) == 0600 ? "Unreadable" : "Readable");
                         });

// In a mount name space of its own, on a file system of 64 KB.
void fillsAFileSystem() {
  std::string const path = std::getenv("HWTABLES_TEST_TABLE");
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("full", path.c_str(), "tmpfs", 0, "size=64k") != 0) {
    std::_Exit(77);
  }
  auto const root = Mem::RootPath(storeHandler(), path, true);
  auto const require = [](bool holds, int code) {
    if (!holds) std::_Exit(code);
  };
  std::uint32_t written = 0;
  {
    Writer32 writer(storeHandler(), root, sharedDescriptor(100000));
    writer.initialize("test");
    std::string const told = messageOf<Dovel::MemoryResourceException>([&] {
      for (;; ++written) writer.write(Record32::of({written, written}, 0), true);
    });
    require(told.find("failed to resize slots from ") == 0, 1);
    require(written >= 256, 2);
  }
  {
    // The operation that failed counts as interrupted.
    Writer32 writer(storeHandler(), root, sharedDescriptor(100000));
    writer.initialize("test");
    require(writer.members() == 0, 3);
    for (std::uint32_t number = 0; number < 64; ++number)
      writer.write(Record32::of({number, number}, 0), true);
    writer.cleanup();
  }
  int const hog = ::open((path + "/hog").c_str(), O_WRONLY | O_CREAT, 0644);
  while (::write(hog, path.data(), path.size()) > 0) {
  }
  Writer32 writer(storeHandler(), root, sharedDescriptor(100000));
  try {
    writer.initialize("test");
    std::_Exit(4);
  } catch (Dovel::MemoryResourceException const&) {
  } catch (Dovel::InvalidInitializeException const&) {
  }
  ::ftruncate(hog, 0);
  writer.initialize("test");
  require(writer.members() == 0, 5);
  std::_Exit(0);
}
ChildRole const fillsAFileSystemRole("fillsAFileSystem", fillsAFileSystem);

TEST(FullFileSystem, IsAnExceptionAtGrowthAndAtAttachAndNeverASignal) {
  StoreDir const folder;
  ChildResult const child = runChild("fillsAFileSystem", {{"HWTABLES_TEST_TABLE", folder.path()}});
  if (child.exitCode == 77) GTEST_SKIP() << "may not mount a file system";
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0) << child.errors();
}

}  // namespace
