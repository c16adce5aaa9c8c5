#include "runtime/FastLog/Decoder.h"

#include <algorithm>
#include <cstring>

#include "runtime/FastLog/MappedLog.h"
#include "runtime/FastLog/MessageText.h"

namespace FastLog {
namespace {

// Time-stamp counter to wall clock, by the header's pair of both and its rate.
class Clock {
 public:
  explicit Clock(FileHeader const& header)
      : startTime_(header.startTime),
        startTicks_(header.startTicks),
        rate_(static_cast<double>(
            std::max<std::uint64_t>(MappedLog::load(header.ticksPerSecond, std::memory_order_relaxed), 1))) {}

  std::uint64_t time(std::uint64_t ticks) const {
    double const since = static_cast<double>(static_cast<std::int64_t>(ticks - startTicks_)) / rate_ * 1e9;
    bool const sane = since > -9e18 && since < 9e18;
    return startTime_ + (sane ? static_cast<std::uint64_t>(static_cast<std::int64_t>(since)) : 0);
  }

 private:
  std::uint64_t startTime_;
  std::uint64_t startTicks_;
  double rate_;
};

class Scan {
 public:
  explicit Scan(MappedLog const& log) : log_(log), clock_(log.header()) {}

  DecodedLog run() {
    readHeader();
    // First the count, then the cells, then the sites: a message that is seen was counted or is newer, and
    // its site is described.
    std::uint64_t const started = MappedLog::load(log_.header().startedMessages, std::memory_order_acquire);
    readRing();
    sites_ = sitesOf(log_.descriptors());
    for (Found const& found : found_) addMessage(found);
    auto const seen = static_cast<std::uint64_t>(decoded_.messages.size()) + decoded_.tornMessages;
    decoded_.overwrittenMessages = started > seen ? started - seen : 0;
    std::stable_sort(decoded_.messages.begin(), decoded_.messages.end(),
                     [](Message const& a, Message const& b) { return a.time < b.time; });
    return std::move(decoded_);
  }

 private:
  using Found = std::vector<std::uint64_t>;

  void readHeader() {
    FileHeader const& header = log_.header();
    char program[sizeof header.program + 1] = {};
    std::memcpy(program, header.program, sizeof header.program);
    decoded_.pid = header.pid;
    decoded_.program = program;
    decoded_.startTime = header.startTime;
  }

  void readRing() {
    std::uint64_t const end = MappedLog::load(log_.header().reservedCells, std::memory_order_acquire);
    std::uint64_t const count = log_.cellCount();
    std::uint64_t position = end > count ? end - count : 0;
    while (position < end) position += readAt(position, end);
  }

  // Reads the message that starts at a position, or counts what stands there instead; how many positions that
  // took.
  std::uint64_t readAt(std::uint64_t position, std::uint64_t end) {
    std::uint64_t const word = log_.tag(position);
    Tag const tag = Tag::fromWord(word);
    if (tag.place != position + 1) {
      // A newer message has taken the cell, or its own has not come to it. A row of such cells counts as one
      // message, as nothing tells where one of them ends.
      if (tag.place < position + 1 && !inGap_) ++decoded_.tornMessages;
      inGap_ = true;
      return 1;
    }
    if (tag.part != 0 || tag.cells > end - position) return 1;  // of a message whose head is gone
    inGap_ = false;
    if (auto words = log_.message(position, tag.cells)) {
      found_.push_back(*std::move(words));
    } else if (!overtaken(position, tag.cells)) {
      ++decoded_.tornMessages;
    }
    return tag.cells;
  }

  bool overtaken(std::uint64_t position, std::size_t cells) const {
    for (std::size_t part = 0; part < cells; ++part) {
      if (Tag::fromWord(log_.tag(position + part)).place > position + part + 1) return true;
    }
    return false;
  }

  void addMessage(Found const& words) {
    Subject const subject = Subject::fromWord(words[1]);
    std::size_t const room = (words.size() - kLeadWords) * sizeof(std::uint64_t);
    std::string_view const arguments(
        static_cast<char const*>(static_cast<void const*>(words.data() + kLeadWords)),
        std::min<std::size_t>(subject.argumentBytes, room));
    Message message{clock_.time(words[0]),
                    subject.thread,
                    "?",
                    0,
                    "(message of a site without description)",
                    subject.cut};
    if (auto const site = sites_.find(subject.id); site != sites_.end()) {
      message.file = site->second.file;
      message.line = site->second.line;
      message.text = messageText(site->second, arguments);
    } else {
      ++decoded_.undescribedMessages;
    }
    decoded_.messages.push_back(std::move(message));
  }

  MappedLog const& log_;
  Clock clock_;
  Sites sites_;
  std::vector<Found> found_;
  bool inGap_ = false;
  DecodedLog decoded_;
};

}  // namespace

DecodeException::~DecodeException() = default;

void DecodeException::throwException(Dovel::String const& message) { throw DecodeException(message); }

DecodedLog decode(std::string const& path) {
  MappedLog const log(path);
  return Scan(log).run();
}

}  // namespace FastLog
