#include "runtime/FastLog/Decoder.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <random>

#include "runtime/FastLog/FastLog.h"
#include "tests/support/Files.h"

namespace {

using FastLog::decode;
using testing::HasSubstr;
using testing::StartsWith;
using TestSupport::TempDir;

std::string refusal(std::string const& path) {
  try {
    decode(path);
  } catch (FastLog::DecodeException const& failure) {
    return failure.what();
  }
  return "";
}

class FastLogDecoderTest : public testing::Test {
 protected:
  FastLogDecoderTest() {
    FastLog::TraceHandle handle(path_, {.cells = 64, .descriptorBytes = 65536});
    for (int i = 0; i < 100; ++i) FASTLOG(&handle, "number {} of {:>5}", i, "many");
    std::ifstream in(path_, std::ios::binary);
    content_.assign(std::istreambuf_iterator<char>(in), {});
  }

  void rewrite(std::string const& bytes) {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }
  void setWord(std::size_t offset, std::uint64_t value) {
    std::string changed = content_;
    std::memcpy(changed.data() + offset, &value, sizeof value);
    rewrite(changed);
  }

  TempDir dir_;
  std::string path_ = dir_.file("a.fastlog");
  std::string content_;
};

TEST_F(FastLogDecoderTest, NamesThePathAndWhatIsWrongWithAFile) {
  EXPECT_EQ(refusal("/nonexistent"), "/nonexistent: cannot open: No such file or directory");
  EXPECT_EQ(refusal(dir_.path()), dir_.path() + ": not a regular file");
  rewrite("");
  EXPECT_EQ(refusal(path_), path_ + ": not a fast log file");
  rewrite(std::string(8192, 'x'));
  EXPECT_EQ(refusal(path_), path_ + ": not a fast log file");
}

TEST_F(FastLogDecoderTest, RefusesEveryLengthShortOfTheWholeFile) {
  for (std::size_t length = 8; length < content_.size(); length += length < 256 ? 8 : 1000) {
    rewrite(content_.substr(0, length));
    ASSERT_THAT(refusal(path_), StartsWith(path_ + ": truncated")) << length;
  }
  rewrite(content_);
  EXPECT_EQ(decode(path_).messages.size(), 64U);
}

TEST_F(FastLogDecoderTest, RefusesAnotherVersionAndImpossibleGeometry) {
  setWord(offsetof(FastLog::FileHeader, version), 2);
  EXPECT_THAT(refusal(path_), HasSubstr("version 2, this program reads version 1"));
  for (std::uint64_t const bad : {std::uint64_t{0}, std::uint64_t{1} << 58, ~std::uint64_t{0}}) {
    for (std::size_t const offset :
         {offsetof(FastLog::FileHeader, descriptorOffset), offsetof(FastLog::FileHeader, descriptorBytes),
          offsetof(FastLog::FileHeader, ringOffset), offsetof(FastLog::FileHeader, cellCount)}) {
      setWord(offset, bad);
      EXPECT_THAT(refusal(path_), StartsWith(path_ + ": damaged header")) << offset << " " << bad;
    }
  }
}

TEST_F(FastLogDecoderTest, SurvivesRandomDamageBehindTheGeometry) {
  std::uint64_t const seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  std::size_t const geometryEnd = offsetof(FastLog::FileHeader, pid);
  // The start of the descriptors and the ring; what lies between is not in use.
  std::size_t const ring = content_.size() - 64 * sizeof(FastLog::Cell);
  std::uniform_int_distribution<std::size_t> early(geometryEnd, FastLog::kHeaderBytes + 2048);
  std::uniform_int_distribution<std::size_t> late(ring, content_.size() - 1);
  for (int round = 0; round < 300; ++round) {
    std::string damaged = content_;
    for (int i = 0; i < 1 << round % 12; ++i)
      damaged[i % 2 == 0 ? early(random) : late(random)] = static_cast<char>(random());
    rewrite(damaged);
    EXPECT_LE(decode(path_).messages.size(), 64U);
  }
}

TEST_F(FastLogDecoderTest, SurvivesFilesOfRandomBytes) {
  std::uint64_t const seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937_64 random(seed);
  for (int round = 0; round < 50; ++round) {
    std::string bytes(content_.size(), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    if (round % 2 == 0) std::memcpy(bytes.data(), content_.data(), offsetof(FastLog::FileHeader, pid));
    rewrite(bytes);
    if (round % 2 == 0) {
      EXPECT_LE(decode(path_).messages.size(), 64U);
    } else {
      EXPECT_EQ(refusal(path_), path_ + ": not a fast log file");
    }
  }
}

TEST_F(FastLogDecoderTest, FormatThatDoesNotFitItsArgumentsIsShownBare) {
  std::string damaged = content_;
  auto const at = damaged.find("{:>5}");
  ASSERT_NE(at, std::string::npos);
  damaged.replace(at, 5, "{:>x}");
  rewrite(damaged);
  EXPECT_THAT(decode(path_).messages.at(0).text, StartsWith("number {} of {:>x} (not formatted: "));
}

}  // namespace
