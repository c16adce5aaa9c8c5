// Runs operations on a table and lets it crash at every point of each, and its recovery too.
#pragma once

#include <gtest/gtest.h>

#include "tests/VaultProbed/CrashJudge.h"

namespace CrashTests {

// Whether what recovers crashes too.
enum class Recoveries { run, crash };

template <class Ops>
class Explorer {
 public:
  using Writer = Vault::VaultWriter<Ops>;

  // Works in three directories below this one.
  Explorer(std::string const& directory, Recoveries recoveries)
      : work_(directory + "/work"),
        first_(directory + "/first"),
        second_(directory + "/second"),
        recoveries_(recoveries),
        inWork_(work_, [this](FileImage const& image, char const* what) { crash(image, what); }),
        inRecovery_(first_, [this](FileImage const& image, char const* what) { crashAgain(image, what); }) {
    for (std::string const* made : {&work_, &first_, &second_})
      Mem::RootPath(quietHandler(), *made, true).makeDirectory();
  }

  std::string const& directory() const { return work_; }
  Figures const& figures() const { return figures_; }
  void tell(char const* name) const {
    tell(name, "crash", figures_);
    if (recoveries_ == Recoveries::crash) tell(name, "crash of the recovery", nestedFigures_);
  }
  // Something was found; more of the same helps nobody.
  bool failed() const { return reproaches_ >= kEnough; }

  // Whatever the call does to the table of the directory, which is at rest or has its writer there.
  template <class Call>
  void explore(std::string const& what, Expectation const& expected, Call&& call) {
    expected_ = expected;
    what_ = what;
    inWork_.start();
    {
      ProbeScope const watching(&inWork_);
      call();
    }
    std::string const strayed = inWork_.finish();
    if (!strayed.empty()) reproach(strayed, "past the probe");
  }

  void explore(Writer& writer, Model& model, Operation const& operation, std::string const& history) {
    Expectation expected{model, model, writer.emberId()};
    expected.after.apply(operation);
    explore(history + operation.text(), expected, [&] { applyTo(writer, operation); });
    model = expected.after;
    Model const found = observed(writer);
    if (found != model) reproach("without any crash: " + found.text(), "end");
  }

 private:
  static constexpr unsigned kEnough = 3;

  static void tell(char const* name, char const* depth, Figures const& figures) {
    fmt::print("{}, {}: {} points, {} distinct images\n", name, depth, figures.points, figures.images);
  }

  void crash(FileImage const& image, char const* what) {
    ++figures_.points;
    if (failed() || !seen_.add(image, expected_)) return;
    ++figures_.images;
    // A recovery must end where it would have without a crash of its own: with what was there, or with
    // nothing.
    nothing_.generation = image.generation();
    whatBefore_ = what;
    isKept_ = fateOf(image) == Fate::kept;
    Verdict const verdict =
        judge<Ops>(image, expected_, first_, recoveries_ == Recoveries::crash ? &inRecovery_ : nullptr);
    if (!verdict.reproach.empty()) reproach(verdict.reproach, what);
  }

  void crashAgain(FileImage const& image, char const* what) {
    ++nestedFigures_.points;
    Expectation const& recovered = isKept_ ? expected_ : nothing_;
    if (failed() || !nestedSeen_.add(image, recovered)) return;
    ++nestedFigures_.images;
    Verdict const verdict = judge<Ops>(image, recovered, second_);
    if (!verdict.reproach.empty()) reproach(verdict.reproach, whatBefore_ + ", then at " + what);
  }

  void reproach(std::string const& text, std::string const& what) {
    ++reproaches_;
    ADD_FAILURE() << what_ << ", crash at " << what << ", point " << figures_.points << ": " << text;
  }

  std::string const work_;
  std::string const first_;
  std::string const second_;
  Recoveries const recoveries_;
  Figures figures_;
  Figures nestedFigures_;
  unsigned reproaches_ = 0;
  Seen seen_;
  Seen nestedSeen_;
  Expectation expected_;
  Expectation nothing_;
  bool isKept_ = false;
  std::string what_;
  std::string whatBefore_;
  CrashProbe inWork_;
  CrashProbe inRecovery_;
};

}  // namespace CrashTests
