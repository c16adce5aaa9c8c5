#include "tests/VaultProbed/ScheduleStage.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace ScheduleTests {
namespace {

void check(bool isFine, char const* what) {
  if (!isFine) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

Stage::Stage(std::string const& directory, Timeline const& timeline)
    : timeline_(timeline), table_(directory + "/table"), kept_(directory + "/kept") {
  for (std::string const& made : {table_, kept_}) {
    std::filesystem::remove_all(made);
    std::filesystem::create_directories(made);
  }
  Recording const& recording = timeline.recording();
  for (unsigned file = 0; file < recording.files.size(); ++file)
    make(file, recording.files[file], timeline.sizeOf(file));
  names_.fill(kNoFile);
  for (unsigned name = 0; name < nameCount; ++name) lead(name, recording.names[name]);
}

Stage::~Stage() {
  for (Mapped const& file : files_) {
    if (file.words != nullptr) ::munmap(file.words, file.size);
    if (file.descriptor >= 0) ::close(file.descriptor);
  }
}

void Stage::make(unsigned file, std::vector<std::uint64_t> const& words, std::size_t room) {
  Mapped& mapped = files_.emplace_back();
  mapped.descriptor = ::open(kept(file).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  check(mapped.descriptor >= 0, "open");
  check(::ftruncate(mapped.descriptor, static_cast<off_t>(words.size() * 8)) == 0, "ftruncate");
  mapped.size = std::max<std::size_t>(room, 8);
  void* const at = ::mmap(nullptr, mapped.size, PROT_READ | PROT_WRITE, MAP_SHARED, mapped.descriptor, 0);
  check(at != MAP_FAILED, "mmap");
  mapped.words = static_cast<std::uint64_t*>(at);
  std::copy(words.begin(), words.end(), mapped.words);
}

void Stage::lead(unsigned name, unsigned file) {
  if (names_[name] != kNoFile) check(::unlink(named(name).c_str()) == 0, "unlink");
  names_[name] = file;
  if (file != kNoFile) check(::link(kept(file).c_str(), named(name).c_str()) == 0, "link");
}

void Stage::wordIs(Step const& step, std::uint64_t value) {
  std::atomic_ref(files_[step.file].words[step.at]).store(value, std::memory_order_relaxed);
}

void Stage::sizeIs(Step const& step, std::uint64_t size) {
  check(::ftruncate(files_[step.file].descriptor, static_cast<off_t>(size)) == 0, "ftruncate");
}

void Stage::seek(Timeline::Position position) {
  auto const& steps = timeline_.recording().steps;
  std::size_t const target = timeline_.stepsAt(position);
  for (std::size_t number = timeline_.stepsAt(position_); number < target; ++number) {
    Step const& step = steps[number];
    if (step.kind == Step::wordStored) wordIs(step, step.value);
    if (step.kind == Step::sizeSet) sizeIs(step, step.value);
    if (step.kind == Step::nameSet) lead(step.name, step.file);
  }
  for (std::size_t number = timeline_.stepsAt(position_); number > target; --number) {
    Step const& step = steps[number - 1];
    if (step.kind == Step::wordStored) wordIs(step, step.before);
    if (step.kind == Step::sizeSet) sizeIs(step, step.before);
    if (step.kind == Step::nameSet) lead(step.name, step.fileBefore);
  }
  position_ = position;
}

}  // namespace ScheduleTests
