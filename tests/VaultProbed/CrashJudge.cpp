#include "tests/VaultProbed/CrashJudge.h"

namespace CrashTests {

Dovel::Platform::DebugHandler const& quietHandler() {
  // Every wipe is traced at level 0, and there are many here.
  static auto const handler = [] {
    Dovel::Trace::levelsIs("CrashTests", 0);
    return Dovel::Platform::getDebugHandler("CrashTests", true);
  }();
  return handler;
}

Fate fateOf(FileImage const& image) {
  bool const complete = image.generation() != SharedMem::EmberId();
  if (complete) return image.isCritical() || image.ownerIsBad() ? Fate::wiped : Fate::kept;
  bool const something = image.hasBytes(FileImage::slots) || image.hasBytes(FileImage::buckets);
  return something ? Fate::wiped : Fate::made;
}

std::string reproachFor(FileImage const& image, Expectation const& expected, Model const& found,
                        SharedMem::EmberId generation, FileImage const& now) {
  if (now.generation() != generation || now.slotGeneration() != generation)
    return fmt::format("generations differ: writer {}, file {}, slots {}", generation, now.generation(),
                       now.slotGeneration());
  if (generation == SharedMem::EmberId()) return "there is no generation";
  if (now.isCritical()) return "the critical flag stands";
  Fate const fate = fateOf(image);
  if (fate == Fate::kept) {
    if (generation != image.generation()) return "the table was sound and was wiped";
    if (now.ownerSaysWiped() != image.ownerSaysWiped()) return "the owner file tells of another wipe";
    if (expected.allows(found)) return {};
    return fmt::format("found [{}], acknowledged [{}], in flight [{}]", found.text(), expected.before.text(),
                       expected.after.text());
  }
  if (found != Model()) return fmt::format("found [{}] instead of nothing", found.text());
  if (generation == expected.generation) return "the generation has not changed";
  if (fate == Fate::wiped && !now.ownerSaysWiped()) return "the owner file doesn't tell of the wipe";
  return {};
}

bool Seen::add(FileImage const& image, Expectation const& expected) {
  ImageHash key = image.hash();
  // Where all is lost, it doesn't matter what there was.
  if (fateOf(image) == Fate::kept) key ^= mixed(expected.before.digest(), expected.after.digest());
  if (key == last_) return false;
  last_ = key;
  return all_.insert(key).second;
}

}  // namespace CrashTests
