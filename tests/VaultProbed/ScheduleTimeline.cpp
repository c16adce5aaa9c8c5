#include "tests/VaultProbed/ScheduleTimeline.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Vault/SlotTable.h"

namespace ScheduleTests {
namespace {

using Words = std::vector<std::uint64_t>;

bool wordsOf(std::string const& path, Words& words) {
  int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  struct stat status {};
  ::fstat(descriptor, &status);
  words.assign(static_cast<std::size_t>(status.st_size) / 8, 0);
  ssize_t const got = ::pread(descriptor, words.data(), words.size() * 8, 0);
  ::close(descriptor);
  if (got != status.st_size) throw std::runtime_error("a file is not of whole words: " + path);
  return true;
}

// Readers copy these with the rest of a header and use none of them.
bool isForWritersAlone(Step const& step) {
  using enum Vault::SlotTable::Word;
  if (step.kind != Step::wordStored || step.name != slots) return false;
  return step.at == kRuntimeFlagsWord || step.at == kOccupiedWord || step.at == kFreeListWord ||
         step.at == kLargestWord;
}

}  // namespace

unsigned nameOf(std::string_view path) {
  std::string_view const last = path.substr(path.rfind('/') + 1);
  return static_cast<unsigned>(std::find(kNames.begin(), kNames.end(), last) - kNames.begin());
}

Recorder::Recorder(std::string const& directory) : directory_(directory), mapped_(directory) {
  for (unsigned name = 0; name < nameCount; ++name) {
    Words words;
    bool const isThere = wordsOf(directory_ + "/" + kNames[name], words);
    names_[name] = isThere ? static_cast<unsigned>(now_.size()) : kNoFile;
    if (isThere) now_.push_back(words);
  }
  recording_.names = names_;
  recording_.files = now_;
}

void Recorder::store(std::uint64_t& cell, std::uint64_t value) {
  auto const place = mapped_.placeOf(&cell);
  if (!place) throw std::runtime_error("a store outside of all files");
  unsigned const name = nameOf(CrashTests::FileImage::kNames[place->file]);
  if (name == nameCount) return;
  unsigned const file = names_[name];
  now_[file].at(place->index) = value;
  recording_.steps.push_back({Step::wordStored, name, file, place->index, value});
}

void Recorder::afterCall(char const* /*call*/, char const* /*file*/) {
  mapped_.forget();
  std::size_t const begin = recording_.steps.size();
  for (unsigned name = 0; name < nameCount; ++name) takeDown(name);
  for (std::size_t step = begin; step + 1 < recording_.steps.size(); ++step)
    recording_.steps[step].together = true;
}

void Recorder::takeDown(unsigned name) {
  Words words;
  bool const isThere = wordsOf(directory_ + "/" + kNames[name], words);
  unsigned& file = names_[name];
  if (!isThere && file != kNoFile) {
    file = kNoFile;
    recording_.steps.push_back({Step::nameSet, name, kNoFile});
  }
  if (!isThere) return;
  if (file == kNoFile) {
    file = static_cast<unsigned>(now_.size());
    now_.emplace_back();
    recording_.files.emplace_back();
    recording_.steps.push_back({Step::nameSet, name, file});
  }
  Words& now = now_[file];
  if (words.size() != now.size()) {
    now.resize(words.size());
    recording_.steps.push_back({Step::sizeSet, name, file, 0, words.size() * 8});
  }
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (now[at] == words[at]) continue;
    now[at] = words[at];
    recording_.steps.push_back({Step::wordStored, name, file, at, words[at]});
  }
}

Recording Recorder::finish() {
  std::size_t const seen = recording_.steps.size();
  for (unsigned name = 0; name < nameCount; ++name) takeDown(name);
  if (recording_.steps.size() != seen) throw std::runtime_error("something was changed past the probe");
  return std::move(recording_);
}

Timeline::Timeline(Recording recording)
    : recording_(std::move(recording)),
      words_(recording_.files.size()),
      largest_(recording_.files.size()),
      never_{} {
  takeBefore();
  mark();
}

// Steps change places and values in tests, so what was before is found out here. Those that change nothing
// are kept, for operations are told by the numbers of their steps.
void Timeline::takeBefore() {
  std::vector<Words> now = recording_.files;
  std::array<unsigned, nameCount> names = recording_.names;
  for (std::size_t file = 0; file < now.size(); ++file) largest_[file] = now[file].size() * 8;
  for (Step& step : recording_.steps) {
    if (step.kind == Step::nameSet) {
      step.fileBefore = std::exchange(names[step.name], step.file);
    } else if (step.kind == Step::sizeSet) {
      step.before = now[step.file].size() * 8;
      now[step.file].resize(step.value / 8);
      largest_[step.file] = std::max<std::size_t>(largest_[step.file], step.value);
    } else {
      // A fault may have put a store before the growth of its file.
      if (step.at >= now[step.file].size()) throw std::runtime_error("a store past the end of a file");
      step.before = std::exchange(now[step.file][step.at], step.value);
    }
  }
}

void Timeline::mark() {
  auto const& steps = recording_.steps;
  bool visible = false;
  for (std::size_t number = 0; number < steps.size(); ++number) {
    Step const& step = steps[number];
    auto const position = static_cast<Position>(ends_.size());
    bool const changes = step.kind == Step::nameSet || step.before != step.value;
    if (changes && step.kind != Step::wordStored) looks_[step.name].push_back(position);
    if (changes && step.kind == Step::wordStored) {
      if (step.name == ember) looks_[ember].push_back(position);
      if (!isForWritersAlone(step)) {
        auto& ofFile = words_[step.file];
        if (ofFile.size() <= step.at) ofFile.resize(step.at + 1);
        ofFile[step.at].push_back(position);
      }
    }
    visible = visible || (changes && !isForWritersAlone(step));
    if (!visible || step.together) continue;
    ends_.push_back(number + 1);
    visible = false;
  }
  ends_.back() = steps.size();
}

Timeline::Position Timeline::positionOf(std::size_t step) const {
  return static_cast<Position>(std::upper_bound(ends_.begin(), ends_.end(), step) - ends_.begin());
}

std::uint64_t Timeline::wordAt(Position position, unsigned file, std::size_t word) const {
  std::uint64_t value = word < recording_.files[file].size() ? recording_.files[file][word] : 0;
  for (std::size_t number = 0; number < stepsAt(position); ++number) {
    Step const& step = recording_.steps[number];
    if (step.kind == Step::wordStored && step.file == file && step.at == word) value = step.value;
  }
  return value;
}

}  // namespace ScheduleTests
