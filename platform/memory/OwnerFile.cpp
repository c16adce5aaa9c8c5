#include "platform/memory/OwnerFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/memory/FileAccess.h"
#include "platform/memory/ProcessIdentity.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace SharedMem {
namespace {

constexpr std::uint32_t kLastKnownType = 1;

template <std::size_t N>
std::string_view text(char const (&field)[N]) {
  return OwnerRecord::text(field, N);
}

template <std::size_t N>
void setText(char (&field)[N], std::string_view value) {
  OwnerRecord::setText(field, N, value);
}

// A damaged file must not play tricks on the terminal that shows it.
template <std::size_t N>
std::string printable(char const (&field)[N]) {
  std::string result(text(field));
  std::replace_if(
      result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return result;
}

std::string describe(OwnerRecord const& record, char const* problem) {
  return fmt::format(
      "{} magic:{:#x} version:{} sequence:{} wiped:{} sharedMemType:{} pid:{} startTime:{} bootId:{} "
      "socketName:{} typeName:{} crc:{:#010x}",
      problem == nullptr ? "sound" : problem, record.magic, record.version, record.sequence, record.wiped,
      record.sharedMemType, record.pid, record.startTime, printable(record.bootId),
      printable(record.socketName), printable(record.typeName), record.crc);
}

// The difference tells, so that a sequence may begin anywhere.
bool isNewer(OwnerRecord const& a, OwnerRecord const& b) {
  return static_cast<std::int64_t>(a.sequence - b.sequence) > 0;
}

}  // namespace

OwnerFile::OwnerFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                     bool localMode, bool create)
    : Dovel::Debuggable(handler),
      rootPath_(rootPath),
      path_(rootPath.fileName(FILENAME)),
      localMode_(localMode),
      create_(create && !localMode) {
  if (create_) initialise();
}

void OwnerFile::initialise() {
  rootPath_.makeDirectory();
  if (!load().isEmpty) return;
  Lock const held = lock();
  if (load().isEmpty) update([](OwnerRecord&) {});
}

OwnerFile::Lock OwnerFile::lock() const {
  if (localMode_) return {};
  Mem::LockFile file(rootPath_, kLockName, Mem::LockFile::Kind::flock);
  if (!file.waitForLock()) {
    DOVEL_THROW(Dovel::NoPermissionException, "OwnerFile", "{} is held by another", file.path());
  }
  return Lock(std::move(file));
}

OwnerRecord const* OwnerFile::Copies::newest() const {
  if (problems[0] != nullptr) return problems[1] == nullptr ? &records[1] : nullptr;
  return problems[1] == nullptr && isNewer(records[1], records[0]) ? &records[1] : &records[0];
}

std::size_t OwnerFile::Copies::indexOfOlder() const {
  OwnerRecord const* const keep = newest();
  return keep == &records[0] ? 1 : 0;
}

OwnerFile::Copies OwnerFile::copiesIn(int descriptor) {
  Copies copies;
  std::size_t const size = Mem::readAt(descriptor, copies.records.data(), sizeof copies.records, 0);
  copies.isEmpty = size == 0;
  for (std::size_t i = 0; i < copies.records.size(); ++i) {
    bool const whole = size >= (i + 1) * sizeof(OwnerRecord);
    if (!whole) copies.records[i] = {};
    copies.problems[i] = whole ? copies.records[i].problem() : "short";
  }
  return copies;
}

OwnerFile::Copies OwnerFile::load() const {
  Mem::OpenedFile const file = Mem::openFile(path_, Mem::FileUse::read);
  if (file.isOpen()) return copiesIn(file.descriptor.number());
  Copies none;
  none.problems.fill("unreadable");
  none.isEmpty = file.error == ENOENT;
  none.trouble = file.text;
  return none;
}

bool OwnerFile::isValid(Copies const& copies, Dovel::String& error) const {
  OwnerRecord const* const record = copies.newest();
  if (!copies.trouble.empty()) {
    error = copies.trouble;
  } else if (record == nullptr) {
    error = fmt::format("bad owner file {}: first copy {}, second copy {}", path_, copies.problems[0],
                        copies.problems[1]);
  } else if (Dovel::String const now = Mem::bootId(); text(record->bootId) != now.view()) {
    error = fmt::format("bad owner file {}: boot id:{} wanted:{}", path_, printable(record->bootId), now);
  } else if (record->sharedMemType > kLastKnownType) {
    error = fmt::format("bad owner file {}: shared-memory type:{}", path_, record->sharedMemType);
  } else {
    return true;
  }
  return false;
}

bool OwnerFile::validate(Dovel::String& error) const { return localMode_ || isValid(load(), error); }

bool OwnerFile::validate() const {
  Dovel::String ignored;
  return validate(ignored);
}

bool OwnerFile::validateFile() const {
  Dovel::String error;
  if (validate(error)) return true;
  DOVEL_TRACE(debugHandler(), 0, "OwnerFile", "{}", error);
  return false;
}

bool OwnerFile::exists() const {
  struct stat status {};
  return !localMode_ && ::lstat(path_.data(), &status) == 0;
}

Dovel::String OwnerFile::headerToString() const {
  if (localMode_) return "local table";
  Copies const copies = load();
  if (!copies.trouble.empty()) return copies.trouble;
  return fmt::format("{} now:{} first copy: {}; second copy: {}", path_, Mem::bootId(),
                     describe(copies.records[0], copies.problems[0]),
                     describe(copies.records[1], copies.problems[1]));
}

template <class Change>
void OwnerFile::update(Change change) {
  if (localMode_) return;
  Mem::OpenedFile const file =
      Mem::openFile(path_, create_ ? Mem::FileUse::makeOrWrite : Mem::FileUse::write);
  if (!create_ && file.error == ENOENT) return;
  if (!file.isOpen()) Mem::throwFileError("OwnerFile", file.error, file.text);
  int const descriptor = file.descriptor.number();
  Copies const copies = copiesIn(descriptor);
  OwnerRecord record = copies.newest() != nullptr ? *copies.newest() : OwnerRecord();
  Dovel::String reason;
  if (copies.isEmpty) {
    setText(record.bootId, Mem::bootId());
  } else if (!isValid(copies, reason)) {
    setText(record.bootId, "");
  }
  change(record);
  auto const self = Mem::ProcessIdentity::self();
  record.pid = self.pid;
  record.startTime = self.startTime;
  ++record.sequence;
  record.crc = record.computedCrc();
  if (!Mem::writeAt(descriptor, path_, &record, sizeof record, copies.indexOfOlder() * sizeof record)) {
    int const error = errno;
    Mem::throwFileError("OwnerFile", error, fmt::format("cannot write {}: {}", path_, std::strerror(error)));
  }
}

void OwnerFile::typeNameIs(Dovel::String const& name) {
  update([&](OwnerRecord& record) { setText(record.typeName, name); });
}

void OwnerFile::sharedMemTypeIs(unsigned type) {
  update([&](OwnerRecord& record) { record.sharedMemType = type; });
}

void OwnerFile::wipedIs(bool wiped) {
  update([&](OwnerRecord& record) {
    record.wiped = wiped ? 1 : 0;
    if (wiped) setText(record.bootId, Mem::bootId());
  });
}

void OwnerFile::wireletInfoIs(WireletInfo const& info) {
  update([&](OwnerRecord& record) { setText(record.socketName, info.socketName()); });
}

OwnerRecord OwnerFile::current() const {
  if (localMode_) return {};
  Copies const copies = load();
  if (copies.isEmpty) return {};
  OwnerRecord const* const newest = copies.newest();
  if (newest == nullptr) {
    Dovel::String error;
    isValid(copies, error);
    DOVEL_THROW(Dovel::CorruptionDetectedException, "OwnerFile", "{}", error);
  }
  return *newest;
}

Dovel::String OwnerFile::typeName() const { return text(current().typeName); }
unsigned OwnerFile::sharedMemType() const { return current().sharedMemType; }
bool OwnerFile::wiped() const { return current().wiped != 0; }
WireletInfo OwnerFile::wireletInfo() const {
  WireletInfo info;
  OwnerRecord const record = current();
  info.socketNameIs(text(record.socketName).substr(0, WireletInfo::kLongestName));
  return info;
}
pid_t OwnerFile::pid() const { return current().pid; }
std::uint64_t OwnerFile::startTime() const { return current().startTime; }
Dovel::String OwnerFile::bootId() const { return text(current().bootId); }

}  // namespace SharedMem
