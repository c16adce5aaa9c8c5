#include "tests/VaultProbed/CrashProbe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

namespace CrashTests {
namespace {

std::string mappingsOfProcess() {
  std::string text;
  int const descriptor = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  std::array<char, 65536> part{};
  for (ssize_t got; (got = ::read(descriptor, part.data(), part.size())) > 0;)
    text.append(part.data(), static_cast<std::size_t>(got));
  ::close(descriptor);
  return text;
}

}  // namespace

std::optional<MappedFiles::Place> MappedFiles::placeOf(void const* address) {
  auto const wanted = reinterpret_cast<std::uintptr_t>(address);
  if (auto const place = known(wanted)) return place;
  learn();
  return known(wanted);
}

std::optional<MappedFiles::Place> MappedFiles::known(std::uintptr_t address) const {
  for (Range const& range : ranges_)
    if (address >= range.begin && address < range.end)
      return Place{range.file, (address - range.begin + range.offset) / 8};
  return std::nullopt;
}

void MappedFiles::learn() {
  ranges_.clear();
  std::istringstream lines(mappingsOfProcess());
  for (std::string line; std::getline(lines, line);) {
    std::size_t const path = line.find(directory_ + "/");
    if (path == std::string::npos) continue;
    Range range{};
    range.file = FileImage::fileOf(std::string_view(line).substr(path));
    int const read = std::sscanf(line.c_str(), "%lx-%lx %*s %lx", &range.begin, &range.end, &range.offset);
    if (read == 3 && range.file != FileImage::fileCount) ranges_.push_back(range);
  }
}

CrashProbe::CrashProbe(std::string const& directory, OnPoint onPoint)
    : directory_(directory), onPoint_(std::move(onPoint)), mapped_(directory) {
  start();
}

void CrashProbe::start() {
  image_.load(directory_);
  mapped_.forget();
}

void CrashProbe::point(char const* what) {
  ProbeScope const blind(nullptr);
  onPoint_(image_, what);
}

void CrashProbe::store(std::uint64_t& cell, std::uint64_t value) {
  point("store");
  auto const place = mapped_.placeOf(&cell);
  if (!place) {
    strayed_ = true;
    return;
  }
  image_.wordIs(place->file, place->index, value);
}

// Lock files are empty, are no part of what a crash leaves, and are opened under a mutex that an attach
// needs.
bool CrashProbe::isMine(std::string_view path) const {
  return path == directory_ || (path.starts_with(directory_ + "/") && path.find("/.") == std::string::npos);
}

void CrashProbe::beforeCall(char const* call, char const* file) {
  if (isMine(file)) point(call);
}

void CrashProbe::afterCall(char const* call, char const* file) {
  mapped_.forget();
  if (!isMine(file)) return;
  FileImage::File const changed = FileImage::fileOf(file);
  if (changed != FileImage::fileCount) {
    FileImage const before = image_;
    image_.load(directory_, changed);
    if (changed == FileImage::owner && std::string_view(call) == "pwrite") tear(before);
  }
  point(call);
}

// The owner file is the one whose writes are not single words.
void CrashProbe::tear(FileImage const& before) {
  constexpr std::size_t kWords = 256;
  constexpr std::size_t kStep = 37;
  FileImage const after = image_;
  for (std::size_t words = kStep; words < kWords; words += kStep) {
    image_ = before.tornTowards(after, FileImage::owner, words);
    point("half of a pwrite");
  }
  image_ = after;
}

std::string CrashProbe::finish() {
  point("end");
  if (strayed_) return "a store outside of all files";
  FileImage now;
  now.load(directory_);
  return image_.differenceTo(now);
}

}  // namespace CrashTests
