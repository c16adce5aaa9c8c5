// Attaches a writer to arbitrary slot and bucket files, or has them change under a table in use. Whatever
// they hold: no access out of bounds, no hang, and no exception that the store doesn't throw for damage. What
// the check lets pass must then work as any table does.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "fuzz/StoreImage.h"
#include "runtime/Dovel/TraceChannel.h"

namespace {

using namespace Fuzz;

constexpr std::uint32_t kEmber = 0x00010001;
constexpr std::size_t kLargestFile = 1 << 16;

void require(bool holds, char const* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: %s\n", what);
  std::abort();
}

struct Input {
  std::uint8_t switches = 0;
  std::string slots;
  std::string buckets;
};

std::optional<Input> parsed(std::uint8_t const* data, std::size_t size) {
  if (size < kHeadOfInput) return std::nullopt;
  std::uint32_t wanted = 0;
  std::memcpy(&wanted, data + 1, sizeof wanted);
  auto const* const bytes = reinterpret_cast<char const*>(data) + kHeadOfInput;
  std::size_t const room = size - kHeadOfInput;
  std::size_t const slots = std::min<std::size_t>(wanted, room);
  Input input{data[0], {bytes, slots}, {bytes + slots, room - slots}};
  if (std::max(input.slots.size(), input.buckets.size()) > kLargestFile) return std::nullopt;
  return input;
}

void put(std::string& file, std::size_t offset, std::uint32_t word) {
  if (offset + sizeof word <= file.size()) std::memcpy(file.data() + offset, &word, sizeof word);
}

// As the files of a table of ours; what is in it stays as it is.
void mendHeaders(Input& input, std::string const& soundSlots) {
  constexpr std::size_t kCommonPart = 552;
  input.slots.replace(0, std::min(input.slots.size(), kCommonPart), soundSlots, 0,
                      std::min(input.slots.size(), kCommonPart));
  put(input.slots, 16, kEmber);
  put(input.buckets, 0, VaultCore::BucketTable::kMagic);
  put(input.buckets, 4, VaultCore::BucketTable::kElementSize);
  put(input.buckets, 8, kEmber);
}

void writeWhole(std::string const& path, std::string const& bytes, bool cut) {
  int const fd = ::open(path.c_str(), O_WRONLY | O_CREAT | (cut ? O_TRUNC : 0) | O_CLOEXEC, 0644);
  require(fd >= 0 && ::pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
          "cannot write a file");
  ::close(fd);
}

// How many records there are up to the limit, which is for tables that aren't sound.
std::uint32_t iterate(ImageWriter& writer, std::uint32_t limit, bool sound) {
  ImageWriter::Value value;
  Vault::IterHint hint;
  std::uint32_t count = 0;
  for (bool more = writer.first(value, hint); more && count < limit;
       more = writer.next(value.key(), value, hint)) {
    ++count;
    bool found = false;
    writer.lookup(value.key(), found, nullptr);
    require(found || !sound, "a record that was iterated over is not found");
  }
  return count;
}

void useSound(ImageWriter& writer) {
  std::uint32_t const members = writer.members();
  require(iterate(writer, members + 1, true) == members, "a sound table is not iterated over in full");
  ImageRecord const record{{0xabcdef01, 0x12345678}, 7};
  bool found = false;
  writer.lookup(record.key(), found, nullptr);
  writer.write(record, true);
  require(writer.members() == members + (found ? 0 : 1), "a write does not count");
  ImageWriter::Value removed;
  require(writer.remove(record.key(), removed), "what was written is not there");
  require(writer.validate(), "a sound table is no longer sound");
}

// Any exception of damage is right, in any step.
template <class Step>
void attempt(Step&& step) {
  try {
    step();
  } catch (Dovel::RuntimeException const&) {
  }
}

void attachTo(Folder const& folder, Input const& input) {
  writeWhole(folder.file("slots"), input.slots, true);
  writeWhole(folder.file("buckets"), input.buckets, true);
  std::string ember(64, '\0');
  put(ember, 0, kEmber);
  writeWhole(folder.file("ember"), ember, true);
  ImageWriter writer(Folder::handler(), folder.root(), descriptor());
  writer.initialize("fuzz");
  bool const adopted = writer.emberId() == SharedMem::EmberId(kEmber);
  require(adopted || writer.members() == 0, "a wiped table is not empty");
  require(writer.validate(), "an attached table is not sound");
  useSound(writer);
}

void changeInUse(Folder const& folder, Input const& input) {
  ImageWriter writer(Folder::handler(), folder.root(), descriptor());
  writer.initialize("fuzz");
  for (std::uint32_t number = 0; number < 10; ++number) writer.write(ImageRecord{{number, number}, 1}, true);
  writeWhole(folder.file("slots"), input.slots, false);
  writeWhole(folder.file("buckets"), input.buckets, false);
  if (writer.validate()) {
    useSound(writer);
    return;
  }
  attempt([&] { iterate(writer, 1000, false); });
  for (std::uint32_t number = 0; number < 20; ++number) {
    bool found = false;
    attempt([&] { writer.lookup({number, number}, found, nullptr); });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // Neither is ever destroyed: the fuzzer may end in the middle of a run.
  static Folder const& folder = *new Folder;
  static std::string const soundSlots = [] {
    Dovel::Trace::levelsIs("*", 0);
    ImageWriter writer(Folder::handler(), folder.root(), descriptor());
    writer.initialize("fuzz");
    std::atexit([] { folder.~Folder(); });
    return contentOf(folder.file("slots"));
  }();
  auto input = parsed(data, size);
  if (!input) return -1;
  if ((input->switches & kMendHeaders) != 0) mendHeaders(*input, soundSlots);
  if ((input->switches & kWhileInUse) != 0) {
    changeInUse(folder, *input);
  } else {
    attachTo(folder, *input);
  }
  return 0;
}
