// Stores for tests: records of any size whose keys hash as the test wants, a writer over files in a folder of
// its own, and the plain bytes of those files, laid out anew here and read by nothing of the store.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <compare>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Vault/VaultWriter.h"
#include "runtime/Dovel/TraceChannel.h"

namespace TestSupport {

// The test says what a key hashes to.
struct ChosenKey {
  std::uint32_t number = 0;
  std::uint32_t chosenHash = 0;

  std::uint32_t hash(std::uint32_t /*seed*/) const { return chosenHash; }
  friend auto operator<=>(ChosenKey const&, ChosenKey const&) = default;
};

// Only so many different hashes: chains are long, and most keys collide.
template <std::uint32_t Distinct>
struct CollidingKey {
  std::uint32_t number = 0;

  std::uint32_t hash(std::uint32_t seed) const { return (number % Distinct + seed) * 2654435761U; }
  friend auto operator<=>(CollidingKey const&, CollidingKey const&) = default;
};

template <class RecordKey, std::size_t Size>
struct TestRecord {
  using Key = RecordKey;
  static constexpr std::size_t kPayload = Size - sizeof(Key);

  Key theKey{};
  std::array<std::uint8_t, kPayload> payload{};

  Key const& key() const { return theKey; }
  static std::string_view typeName() { return "TestSupport::TestRecord"; }

  static TestRecord of(Key const& key, std::uint32_t content) {
    TestRecord record{key, {}};
    for (std::size_t at = 0; at < kPayload; ++at)
      record.payload[at] = static_cast<std::uint8_t>((content >> 8 * (at % 4)) + at / 4);
    return record;
  }
};

template <class Record>
using OpsFor = Vault::OpsOf<OrloVault::ValWrap<Record, typename Record::Key, &Record::key, false>>;
template <class Record>
using WriterOf = Vault::VaultWriter<OpsFor<Record>>;

// A folder in shared memory, gone with the test.
class StoreDir {
 public:
  StoreDir() : path_("/dev/shm/hwtables-test-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp " + path_);
  }
  StoreDir(StoreDir const&) = delete;
  StoreDir& operator=(StoreDir const&) = delete;
  ~StoreDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string const& path() const { return path_; }
  std::string file(std::string const& name) const { return path_ + "/" + name; }
  bool has(std::string const& name) const { return std::filesystem::exists(file(name)); }

 private:
  std::string path_;
};

inline std::string bytesOf(std::string const& path) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("open " + path);
  struct stat status {};
  ::fstat(fd, &status);
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  ssize_t const got = ::pread(fd, bytes.data(), bytes.size(), 0);
  ::close(fd);
  if (got != status.st_size) throw std::runtime_error("pread " + path);
  return bytes;
}

inline void poke(std::string const& path, std::size_t offset, void const* bytes, std::size_t size) {
  int const fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ssize_t const put = ::pwrite(fd, bytes, size, static_cast<off_t>(offset));
  ::close(fd);
  if (put != static_cast<ssize_t>(size)) throw std::runtime_error("pwrite " + path);
}
inline void poke32(std::string const& path, std::size_t offset, std::uint32_t word) {
  poke(path, offset, &word, sizeof word);
}
template <class Word>
Word wordAt(std::string const& bytes, std::size_t offset) {
  if (offset + sizeof(Word) > bytes.size()) throw std::out_of_range("behind the end of the file");
  Word word{};
  std::memcpy(&word, bytes.data() + offset, sizeof word);
  return word;
}

// The files of a store as bytes.
class Image {
 public:
  static constexpr std::uint32_t kNil = 0xbfffffff;
  static constexpr std::uint32_t kEnd = 0x80000000;
  static constexpr std::uint32_t kFlag = 0x40000000;

  struct Link {
    std::uint32_t sequence;
    std::uint32_t next;
    bool occupied() const { return (sequence & 1) != 0; }
    bool flag() const { return (next & kFlag) != 0; }
    std::uint32_t target() const { return next & ~kFlag; }
    friend bool operator==(Link const&, Link const&) = default;
  };

  Image(std::string const& folder, std::size_t valueSize)
      : slots_(bytesOf(folder + "/slots")), buckets_(bytesOf(folder + "/buckets")), valueSize_(valueSize) {}

  static std::size_t slotSize(std::size_t valueSize) { return (valueSize + 16 + 7) / 8 * 8; }
  static std::size_t headerSize(std::size_t valueSize) { return 608 + slotSize(valueSize); }
  std::size_t offsetOf(std::uint32_t slot) const {
    return headerSize(valueSize_) + slot * slotSize(valueSize_);
  }

  std::uint32_t head32(std::size_t offset) const { return wordAt<std::uint32_t>(slots_, offset); }
  std::uint32_t ember() const { return head32(16); }
  std::uint16_t runtimeFlags() const { return wordAt<std::uint16_t>(slots_, 558); }
  std::uint32_t occupied() const { return head32(564); }
  std::uint32_t freeList() const { return head32(568); }
  std::uint32_t peak() const { return head32(572); }
  std::uint32_t seed() const { return head32(576); }
  std::uint32_t watermark() const { return head32(580); }
  std::uint32_t numSlotsVersion() const { return head32(584); }
  std::uint32_t numSlots() const { return head32(588); }
  std::uint32_t largest() const { return head32(592); }
  std::uint64_t scratchpad() const { return wordAt<std::uint64_t>(slots_, 600); }

  Link link(std::uint32_t slot) const { return wordAt<Link>(slots_, offsetOf(slot)); }
  std::string value(std::uint32_t slot) const { return slots_.substr(offsetOf(slot) + 8, valueSize_); }
  std::uint32_t hash(std::uint32_t slot) const {
    return wordAt<std::uint32_t>(slots_, offsetOf(slot) + 8 + valueSize_);
  }
  // All between the hash and the next slot.
  std::string tail(std::uint32_t slot) const {
    std::size_t const used = 12 + valueSize_;
    return slots_.substr(offsetOf(slot) + used, slotSize(valueSize_) - used);
  }
  Link lookasideLink() const { return wordAt<Link>(slots_, 608); }
  std::string lookasideValue() const { return slots_.substr(616, valueSize_); }
  std::uint32_t lookasideHash() const { return wordAt<std::uint32_t>(slots_, 616 + valueSize_); }

  std::uint32_t bucketEmber() const { return wordAt<std::uint32_t>(buckets_, 8); }
  std::uint32_t numBucketsVersion() const { return wordAt<std::uint32_t>(buckets_, 16); }
  std::uint32_t numBuckets() const { return wordAt<std::uint32_t>(buckets_, 20); }
  Link head(std::uint32_t bucket) const { return wordAt<Link>(buckets_, 24 + 8 * std::size_t{bucket}); }

  std::string const& slots() const { return slots_; }
  std::string const& buckets() const { return buckets_; }

  std::vector<std::uint32_t> freeIds() const {
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id = freeList(); id != kNil; id = link(id).target()) {
      if (ids.size() > numSlots()) throw std::runtime_error("the free list is a cycle");
      ids.push_back(id);
    }
    return ids;
  }
  // The slots of a bucket, and what its chain ends in.
  std::vector<std::uint32_t> chain(std::uint32_t bucket, std::uint32_t* end = nullptr) const {
    std::vector<std::uint32_t> ids;
    std::uint32_t at = head(bucket).target();
    while ((at & kEnd) == 0) {
      if (ids.size() > numSlots()) throw std::runtime_error("a chain is a cycle");
      ids.push_back(at);
      at = link(at).target();
    }
    if (end != nullptr) *end = at;
    return ids;
  }
  // The end that the rule asks for: bucket numbers count with their bits reversed.
  std::uint32_t endOf(std::uint32_t bucket) const {
    unsigned bits = 0;
    while (1U << bits < numBuckets()) ++bits;
    std::uint32_t const following = reversed(bucket, bits) + 1;
    return following == numBuckets() ? kNil : kEnd | reversed(following, bits);
  }
  static std::uint32_t reversed(std::uint32_t word, unsigned bits) {
    std::uint32_t result = 0;
    for (unsigned bit = 0; bit < bits; ++bit)
      if ((word >> bit & 1) != 0) result |= 1U << (bits - 1 - bit);
    return result;
  }

  // Every slot on the one chain that its hash asks for or on the free list, chains in order and ended right,
  // and counts that add up. Returns how many records there are. What fills a slot up is zero where only a
  // writer has been at the file.
  std::size_t expectSound(bool zeroPadding = true) const {
    std::vector<int> seen(numSlots(), 0);
    std::size_t records = 0;
    for (std::uint32_t bucket = 0; bucket < numBuckets(); ++bucket) {
      std::uint32_t end = 0;
      std::uint32_t before = 0;
      for (std::uint32_t const id : chain(bucket, &end)) {
        EXPECT_LT(id, numSlots());
        EXPECT_TRUE(link(id).occupied()) << "slot " << id;
        EXPECT_EQ(link(id).sequence & 2, 0U) << "slot " << id;
        EXPECT_EQ(reversed(hash(id), 32) % numBuckets(), bucket) << "slot " << id;
        EXPECT_LE(before, hash(id)) << "slot " << id;
        if (zeroPadding) {
          EXPECT_EQ(tail(id), std::string(tail(id).size(), '\0')) << "slot " << id;
        }
        before = hash(id);
        ++seen.at(id);
        ++records;
      }
      EXPECT_EQ(end, endOf(bucket)) << "bucket " << bucket;
    }
    for (std::uint32_t const id : freeIds()) {
      EXPECT_LT(id, numSlots());
      EXPECT_FALSE(link(id).occupied()) << "slot " << id;
      ++seen.at(id);
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<long>(numSlots()));
    EXPECT_EQ(records, occupied());
    EXPECT_EQ(runtimeFlags() & 1, 0);
    return records;
  }

 private:
  std::string slots_;
  std::string buckets_;
  std::size_t valueSize_;
};

inline constexpr char kStoreChannel[] = "TestStore";

inline Dovel::Platform::DebugHandler storeHandler() {
  return Dovel::Platform::getDebugHandler(kStoreChannel, true);
}

inline Vault::MapDescriptor sharedDescriptor(unsigned maxSize) {
  Vault::MapDescriptor descriptor(maxSize);
  descriptor.localMem = false;
  return descriptor;
}

// The lines that the store traces at the given levels ("0-9", "5") while the call runs.
template <class Call>
std::string tracesOf(std::string const& levels, Call&& call) {
  Dovel::Trace::rulesIs(kStoreChannel + ("/" + levels));
  testing::internal::CaptureStderr();
  try {
    call();
  } catch (...) {
    testing::internal::GetCapturedStderr();
    Dovel::Trace::rulesIs(kStoreChannel + std::string("/0"));
    throw;
  }
  Dovel::Trace::rulesIs(kStoreChannel + std::string("/0"));
  return testing::internal::GetCapturedStderr();
}

// The same for what is expected to throw; what was thrown is of no interest.
template <class Call>
std::string tracesOfFailing(std::string const& levels, Call&& call) {
  return tracesOf(levels, [&] {
    try {
      call();
    } catch (Dovel::Exception const&) {
    }
  });
}

// A table and its writer.
template <class Record>
class Store {
 public:
  using Writer = WriterOf<Record>;
  using Value = typename Writer::Value;
  using Key = typename Record::Key;
  static constexpr std::size_t kValueSize = sizeof(Record);

  explicit Store(Vault::MapDescriptor const& descriptor = sharedDescriptor(1000)) : descriptor_(descriptor) {
    open();
  }

  void open() {
    auto writer = std::make_unique<Writer>(storeHandler(), root(), descriptor_);
    writer->initialize("test");
    writer_ = std::move(writer);
  }
  void close() { writer_.reset(); }
  void reopen() {
    close();
    open();
  }

  StoreDir const& folder() const { return folder_; }
  std::string file(std::string const& name) const { return folder_.file(name); }
  Mem::RootPath root() const { return {storeHandler(), folder_.path(), !descriptor_.localMem}; }
  Vault::MapDescriptor& descriptor() { return descriptor_; }
  Writer& operator*() { return *writer_; }
  Writer* operator->() { return writer_.get(); }
  Image image() const { return Image(folder_.path(), kValueSize); }

  void write(Key const& key, std::uint32_t content = 0) { writer_->write(Record::of(key, content), true); }
  bool remove(Key const& key) {
    Value removed;
    return writer_->remove(key, removed);
  }
  std::vector<Key> iterated() {
    std::vector<Key> keys;
    Value value;
    Vault::IterHint hint;
    for (bool more = writer_->first(value, hint); more; more = writer_->next(value.key(), value, hint))
      keys.push_back(value.key());
    return keys;
  }
  std::uint32_t slotOf(Key const& key) const {
    Image const now = image();
    for (std::uint32_t id = 0; id < now.numSlots(); ++id)
      if (now.link(id).occupied() && std::memcmp(now.value(id).data(), &key, sizeof key) == 0) return id;
    throw std::runtime_error("no such key");
  }

 private:
  StoreDir folder_;
  Vault::MapDescriptor descriptor_;
  std::unique_ptr<Writer> writer_;
};

}  // namespace TestSupport

template <>
struct fmt::formatter<TestSupport::ChosenKey> : Dovel::PlainFormatter {
  auto format(TestSupport::ChosenKey const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "key{}", key.number);
  }
};
template <std::uint32_t Distinct>
struct fmt::formatter<TestSupport::CollidingKey<Distinct>> : Dovel::PlainFormatter {
  auto format(TestSupport::CollidingKey<Distinct> const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "key{}", key.number);
  }
};
