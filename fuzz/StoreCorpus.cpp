// Writes the first inputs of the store's fuzzer: images of small real stores, sound ones and damaged ones.
// Usage: fuzz_store_corpus FOLDER
#include <cstdio>

#include "fuzz/StoreImage.h"

namespace {

using namespace Fuzz;

void save(std::string const& path, std::uint8_t switches, std::string const& slots,
          std::string const& buckets) {
  auto const length = static_cast<std::uint32_t>(slots.size());
  std::string input(kHeadOfInput, '\0');
  input[0] = static_cast<char>(switches);
  std::memcpy(input.data() + 1, &length, sizeof length);
  std::ofstream(path, std::ios::binary) << input << slots << buckets;
}

struct Kind {
  char const* name;
  std::uint32_t maxSize;
  std::uint32_t records;
  std::uint32_t removed;
  std::uint32_t hashes;  // different ones
};

// Of fixed size, so that the images are small; a table that may grow takes them as well.
void make(std::string const& folder, Kind const& kind) {
  Folder const files;
  auto wanted = descriptor();
  wanted.fixedSize = true;
  wanted.maxSize = kind.maxSize;
  {
    ImageWriter writer(Folder::handler(), files.root(), wanted);
    writer.initialize("corpus");
    for (std::uint32_t number = 0; number < kind.records; ++number)
      writer.write(ImageRecord{{number, (number % kind.hashes) * 0x9e3779b1}, number}, true);
    ImageWriter::Value value;
    for (std::uint32_t number = 0; number < kind.removed; ++number)
      writer.remove({number, (number % kind.hashes) * 0x9e3779b1}, value);
  }
  // Without the rest of the last page.
  std::size_t const used = 640 + kind.maxSize * 32;
  std::string const slots = contentOf(files.file("slots")).substr(0, used);
  std::string buckets = contentOf(files.file("buckets"));
  std::uint32_t count = 0;
  std::memcpy(&count, buckets.data() + 20, sizeof count);
  buckets.resize(24 + 8 * std::size_t{count});
  std::string const name = folder + "/" + kind.name;
  save(name, kMendHeaders, slots, buckets);
  save(name + "_raw", 0, slots, buckets);
  save(name + "_in_use", kMendHeaders | kWhileInUse, slots, buckets);
  save(name + "_short", kMendHeaders, slots.substr(0, used - 1), buckets);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_store_corpus FOLDER\n");
    return 2;
  }
  for (Kind const& kind :
       {Kind{"empty", 1, 0, 0, 1}, Kind{"one", 1, 1, 0, 1}, Kind{"few", 4, 3, 1, 3}, Kind{"full", 8, 8, 0, 8},
        Kind{"colliding", 8, 6, 2, 2}, Kind{"drained", 8, 8, 8, 8}})
    make(argv[1], kind);
  return 0;
}
