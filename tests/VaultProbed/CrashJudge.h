// Attaches a fresh writer to the files that a crash would have left, and says whether what it finds is legal.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include "tests/VaultProbed/CrashModel.h"
#include "tests/VaultProbed/CrashProbe.h"

namespace CrashTests {

// What may be found after a crash: what was acknowledged before, or that with the operation in flight.
struct Expectation {
  Model before;
  Model after;
  SharedMem::EmberId generation;  // of the table before the operation; none where there was no table

  bool allows(Model const& model) const { return model == before || model == after; }
};

// Maximum size of all tables: what is beyond grows by a tenth.
inline constexpr unsigned kMaxSize = 16;

Dovel::Platform::DebugHandler const& quietHandler();

template <class Ops>
std::unique_ptr<Vault::VaultWriter<Ops>> writerOf(std::string const& directory, unsigned maxSize = kMaxSize) {
  Vault::MapDescriptor descriptor(maxSize);
  descriptor.localMem = false;
  return std::make_unique<Vault::VaultWriter<Ops>>(
      quietHandler(), Mem::RootPath(quietHandler(), directory, true), descriptor);
}

template <class Ops>
std::unique_ptr<Vault::VaultWriter<Ops>> attachedTo(std::string const& directory,
                                                    unsigned maxSize = kMaxSize) {
  auto writer = writerOf<Ops>(directory, maxSize);
  writer->initialize("none");
  return writer;
}

// The fate of the files, by what stands in them.
enum class Fate {
  kept,   // a generation, and no operation under way
  wiped,  // an operation under way, files without a generation, or an owner file that can't be trusted
  made    // nothing yet, or nothing left
};

Fate fateOf(FileImage const& image);

// What became of them. An empty reproach is praise.
struct Verdict {
  std::string reproach;
  Model found;
};

std::string reproachFor(FileImage const& image, Expectation const& expected, Model const& found,
                        SharedMem::EmberId generation, FileImage const& now);

// The probe, where it isn't null, sees the attach.
template <class Ops>
Verdict judge(FileImage const& image, Expectation const& expected, std::string const& directory,
              CrashProbe* probe = nullptr) {
  image.writeTo(directory);
  if (probe != nullptr) probe->start();
  Verdict verdict;
  try {
    auto const writer = writerOf<Ops>(directory);
    {
      ProbeScope const watching(probe);
      writer->initialize("none");
    }
    if (probe != nullptr) verdict.reproach = probe->finish();
    FileImage now;
    for (auto file : {FileImage::slots, FileImage::ember, FileImage::owner}) now.load(directory, file);
    verdict.found = observed(*writer);
    if (verdict.reproach.empty())
      verdict.reproach = reproachFor(image, expected, verdict.found, writer->emberId(), now);
  } catch (std::exception const& thrown) {
    verdict.reproach = fmt::format("the attach failed: {}", thrown.what());
  }
  return verdict;
}

struct Figures {
  std::uint64_t points = 0;
  std::uint64_t images = 0;

  Figures& operator+=(Figures const& other) {
    points += other.points;
    images += other.images;
    return *this;
  }
};

// Remembers which images were judged: those that are alike, with the same expectation, are judged once.
class Seen {
 public:
  bool add(FileImage const& image, Expectation const& expected);

 private:
  struct Hasher {
    std::size_t operator()(ImageHash const& hash) const { return hash.first ^ hash.second << 1; }
  };

  ImageHash last_;
  std::unordered_set<ImageHash, Hasher> all_;
};

}  // namespace CrashTests
