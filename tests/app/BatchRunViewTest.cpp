#include "app/BatchRunView.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using app::BatchRunView;

// The time left mixes the mean of the items done with the current item's own pace.
TEST(BatchRunView, TimeLeftFromItemsDoneAndTheCurrentPace) {
    struct Row {
        std::size_t done;
        double doneSeconds;
        std::size_t remaining;
        double currentSeconds;
        double progress;
        std::optional<double> left;
    } rows[] = {
        // Nothing known: no item done and too little progress to judge.
        {0, 0, 5, 1.0, 0.0, std::nullopt},
        {0, 0, 5, 1.0, 0.04, std::nullopt},
        // The current item alone: 2 s at a quarter is 8 s an item, 6 s of it left, 3 more.
        {0, 0, 3, 2.0, 0.25, 6.0 + 3 * 8.0},
        // Items done set the pace of the rest; the current one goes by its own.
        {4, 40, 2, 5.0, 0.5, 5.0 + 2 * 10.0},
        // No progress reported (photos): the current item is taken at the mean.
        {2, 6, 1, 1.0, 0.0, 2.0 + 3.0},
        // Slower than the mean and past it: never negative.
        {2, 6, 0, 9.0, 0.0, 0.0},
    };
    for (const auto& r : rows) {
        auto left = BatchRunView::timeLeft(r.done, r.doneSeconds, r.remaining, r.currentSeconds,
                                           r.progress);
        ASSERT_EQ(left.has_value(), r.left.has_value()) << r.done << " " << r.progress;
        if (left) {
            EXPECT_DOUBLE_EQ(*left, *r.left);
        }
    }
}

TEST(BatchRunView, BarAndClock) {
    EXPECT_EQ(BatchRunView::bar(0.0, 4), "[    ] 0%");
    EXPECT_EQ(BatchRunView::bar(0.5, 4), "[##  ] 50%");
    EXPECT_EQ(BatchRunView::bar(1.7, 4), "[####] 100%");
    EXPECT_EQ(BatchRunView::bar(-1, 4), "[    ] 0%");
    EXPECT_EQ(BatchRunView::clock(0), "0:00");
    EXPECT_EQ(BatchRunView::clock(65.4), "1:05");
    EXPECT_EQ(BatchRunView::clock(3665), "1:01:05");
}

// On a terminal the status line is redrawn in place and taken away before other lines;
// elsewhere each item gets a plain line and nothing is drawn in place.
TEST(BatchRunView, TerminalRedrawsInPlacePlainOutputDoesNot) {
    std::ostringstream terminal;
    BatchRunView onTerminal(terminal, true, 2);
    onTerminal.itemStarted(1, "/photos/IMG_1.jpg");
    onTerminal.itemProgress(0.5);
    onTerminal.note("a note");
    onTerminal.itemEnded();
    onTerminal.summary(1, 0, 1, false);
    const std::string drawn = terminal.str();
    EXPECT_NE(drawn.find("\r[1/2] IMG_1.jpg  [##########          ] 50%"), std::string::npos)
        << drawn;
    EXPECT_NE(drawn.find("\r\x1b[Ka note\n"), std::string::npos) << drawn;
    EXPECT_NE(drawn.find("Stopped: 1 result, 0 failures, 1 not processed in "), std::string::npos)
        << drawn;

    std::ostringstream plain;
    BatchRunView offTerminal(plain, false, 2);
    offTerminal.itemStarted(1, "/photos/IMG_1.jpg");
    offTerminal.itemProgress(0.5);
    offTerminal.itemEnded();
    offTerminal.summary(0, 2, 0, true);
    EXPECT_EQ(plain.str().find('\r'), std::string::npos) << plain.str();
    EXPECT_EQ(plain.str().rfind("[1/2] /photos/IMG_1.jpg\nCancelled: 0 results, 2 failures in ", 0),
              0u)
        << plain.str();
}

}  // namespace
