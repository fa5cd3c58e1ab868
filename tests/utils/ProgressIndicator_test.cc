#include "utils/ProgressIndicator.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace velmor {
namespace {

constexpr std::string_view kErase = "\r\033[K";

// Everything an indicator sent to its sink.
struct Recorder {
  std::vector<std::string> texts;
  ProgressIndicator::Sink Sink() {
    return [this](std::string_view text) { texts.emplace_back(text); };
  }
};

TEST(ProgressIndicator, DrawsThrottlesAndErases) {
  // Without a sink nothing is drawn, whatever happens.
  {
    ProgressIndicator silent{ProgressIndicator::Sink()};
    EXPECT_FALSE(silent.enabled());
    silent.Update("work", 1, 2);
    silent.Finish();
  }

  // Redrawn in place once the interval has passed (the first update of a
  // stage only starts its clock); erased once at the end, and only when shown.
  Recorder recorder;
  {
    ProgressIndicator progress(recorder.Sink(), 0.0);
    progress.Update("FL matrix, similarities", 0, 4, "tiles");
    EXPECT_TRUE(recorder.texts.empty());
    progress.Update("FL matrix, similarities", 3, 4, "tiles");
    ASSERT_EQ(1u, recorder.texts.size());
    EXPECT_EQ(0u, recorder.texts[0].find(kErase));
    EXPECT_NE(std::string::npos,
              recorder.texts[0].find("FL matrix, similarities: 3/4 tiles (75.0%)"));
    progress.Finish();
    ASSERT_EQ(2u, recorder.texts.size());
    EXPECT_EQ(kErase, recorder.texts[1]);
    progress.Finish();
    EXPECT_EQ(2u, recorder.texts.size());
  }
  EXPECT_EQ(2u, recorder.texts.size());  // the destructor had nothing left to erase

  // Many updates from several threads within one interval: no redraw at all;
  // the destructor does not erase what was never drawn.
  recorder.texts.clear();
  {
    ProgressIndicator progress(recorder.Sink(), 3600.0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&progress] {
        for (int i = 0; i < 20000; ++i) progress.Update("stage", i, 20000);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  EXPECT_TRUE(recorder.texts.empty());
}

TEST(ProgressIndicator, LineEstimatesTheRemainingTime) {
  // A quarter done in 10 s leaves 30 s at the same pace.
  EXPECT_EQ("a: 25/100 steps (25.0%), 10.0 s elapsed, about 30.0 s left",
            ProgressIndicator::Line("a", 25, 100, "steps", 10.0));
  // Nothing done yet: no estimate; long times in minutes and hours.
  EXPECT_EQ("b: 0/7 (0.0%), 0.5 s elapsed", ProgressIndicator::Line("b", 0, 7, "", 0.5));
  EXPECT_EQ("c: 1/3 (33.3%), 2 min 05 s elapsed, about 4 min 10 s left",
            ProgressIndicator::Line("c", 1, 3, "", 125.0));
  EXPECT_EQ("d: 1/2 (50.0%), 1 h 01 min elapsed, about 1 h 01 min left",
            ProgressIndicator::Line("d", 1, 2, "", 3660.0));
}

}  // namespace
}  // namespace velmor
