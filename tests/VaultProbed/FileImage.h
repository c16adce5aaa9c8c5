// The files of a table as a crash would leave them, kept in memory and hashed: a store to one word changes
// image and hash in constant time. Plain values of one thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/memory/EmberId.h"

namespace CrashTests {

struct ImageHash {
  std::uint64_t first = 0;
  std::uint64_t second = 0;

  ImageHash& operator^=(ImageHash const& other) {
    first ^= other.first;
    second ^= other.second;
    return *this;
  }
  friend bool operator==(ImageHash const&, ImageHash const&) = default;
};

ImageHash mixed(std::uint64_t place, std::uint64_t word);

class FileImage {
 public:
  enum File : unsigned { slots, buckets, ember, owner, control, marker, fileCount };
  static constexpr std::array<char const*, fileCount> kNames{"slots", "buckets", "ember",
                                                             "owner", "control", "corruption-detected"};

  // The file of that path's last part; fileCount for another.
  static File fileOf(std::string_view path);

  // Reads all files of a directory, or one of them anew.
  void load(std::string const& directory);
  void load(std::string const& directory, File file);
  // Makes the files of a directory these, lock files apart.
  void writeTo(std::string const& directory) const;

  void wordIs(File file, std::size_t index, std::uint64_t word);
  std::uint64_t word(File file, std::size_t index) const {
    return index < files_[file].words.size() ? files_[file].words[index] : 0;
  }
  bool hasBytes(File file) const { return files_[file].size != 0; }

  // The generation of the table, and that which its slots carry.
  SharedMem::EmberId generation() const { return SharedMem::EmberId(low(word(ember, 0))); }
  SharedMem::EmberId slotGeneration() const;
  // Whether the dead writer was in the middle of something.
  bool isCritical() const;
  bool ownerSaysWiped() const { return ownerSaysWiped_; }
  // Whether the owner file is damaged, or was found so and is not yet replaced.
  bool ownerIsBad() const { return ownerIsBad_; }

  // Of what decides about the fate of these files. The seed, which the hashes of the keys ignore, is left
  // out; a generation counts by whether it is that of the generation file; an owner file by what it says.
  ImageHash hash() const;

  // This, with as many words of a file as a write, that made it what it is afterwards, had come to.
  FileImage tornTowards(FileImage const& after, File file, std::size_t words) const;

  // Where the two differ; empty where they don't.
  std::string differenceTo(FileImage const& other) const;

 private:
  struct Contents {
    bool exists = false;
    std::size_t size = 0;
    std::vector<std::uint64_t> words;
    ImageHash hash;
  };

  static std::uint32_t low(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
  ImageHash hashOf(File file, std::size_t index, std::uint64_t word) const;
  ImageHash hashOfGeneration(File file, std::size_t index) const;
  ImageHash hashOfOwner();
  void rehash(File file);

  std::array<Contents, fileCount> files_;
  bool ownerSaysWiped_ = false;
  bool ownerIsBad_ = false;
};

}  // namespace CrashTests
