// Watches the thread's work on one directory, and holds at every moment what a crash would leave there.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/memory/Probe.h"
#include "tests/VaultProbed/FileImage.h"

namespace CrashTests {

// Puts a probe, or none, in place for a scope.
class ProbeScope {
 public:
  explicit ProbeScope(Mem::Probe* probe) : before_(Mem::probe) { Mem::probe = probe; }
  ProbeScope(ProbeScope const&) = delete;
  ProbeScope& operator=(ProbeScope const&) = delete;
  ~ProbeScope() { Mem::probe = before_; }

 private:
  Mem::Probe* const before_;
};

// Where the words of a directory's files are mapped in this process.
class MappedFiles {
 public:
  struct Place {
    FileImage::File file;
    std::size_t index;
  };

  explicit MappedFiles(std::string directory) : directory_(std::move(directory)) {}

  // None for an address in no file of the directory. Looks at the process's mappings only where the address
  // lies in none that is known.
  std::optional<Place> placeOf(void const* address);
  // After what may have moved mappings.
  void forget() { ranges_.clear(); }

 private:
  struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
    FileImage::File file;
    std::size_t offset;
  };

  void learn();
  std::optional<Place> known(std::uintptr_t address) const;

  std::string const directory_;
  std::vector<Range> ranges_;
};

// Calls onPoint with the image before every store, before and after every call, and in the middle of writes
// of more than a word.
class CrashProbe final : public Mem::Probe {
 public:
  using OnPoint = std::function<void(FileImage const& image, char const* what)>;

  CrashProbe(std::string const& directory, OnPoint onPoint);

  void store(std::uint64_t& cell, std::uint64_t value) override;
  void beforeCall(char const* call, char const* file) override;
  void afterCall(char const* call, char const* file) override;

  // Takes the files as they are now.
  void start();
  // The last point. What the files hold beyond what was seen was stored past the probe: returned as text.
  std::string finish();

 private:
  bool isMine(std::string_view path) const;
  void point(char const* what);
  void tear(FileImage const& before);

  std::string const directory_;
  OnPoint const onPoint_;
  FileImage image_;
  MappedFiles mapped_;
  bool strayed_ = false;
};

}  // namespace CrashTests
