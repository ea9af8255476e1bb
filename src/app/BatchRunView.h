// What the `process` command shows of a batch run on standard error: on a terminal one status
// line redrawn in place (item n of N, the item's progress, time left) and the questions of
// the run's alerts; elsewhere a plain line as each item starts. Ends with the summary line.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace app {

class BatchRunView {
  public:
    BatchRunView(std::ostream& out, bool terminal, std::size_t total);

    bool isTerminal() const { return _terminal; }
    // Item `number` (from 1) of the run starts.
    void itemStarted(std::size_t number, const std::string& name);
    // The item's progress, 0 to 1; drawn on a terminal only.
    void itemProgress(double progress);
    // The item is done (a result or a failure): its time counts towards the time left.
    void itemEnded();
    // A line of its own, above the status line on a terminal.
    void note(const std::string& line);
    // Takes the status line away before other output.
    void clearLine();
    // "Done: 3 results, 1 failure in 2.4 s"; "Stopped: ..., 2 not processed" when a failure
    // left items undone; "Cancelled: ..." after a cancel.
    void summary(std::size_t results, std::size_t failures, std::size_t left, bool cancelled);

    // Asks `title` and `message` on the terminal with the buttons by their first letters; the
    // index chosen, or absent when nothing usable was read (end of input, an interrupt).
    std::optional<std::size_t> ask(const std::string& title, const std::string& message,
                                   const std::vector<std::string>& buttons);

    // "[####      ] 42%" for a width of 10.
    static std::string bar(double fraction, int width);
    // "1:05" for 65 seconds, "1:01:05" past an hour.
    static std::string clock(double seconds);
    // The seconds left for `remaining` items after the current one, from the mean time of
    // `done` items taking `doneSeconds`, and the current item's own pace; absent while
    // nothing is known yet.
    static std::optional<double> timeLeft(std::size_t done, double doneSeconds,
                                          std::size_t remaining, double currentSeconds,
                                          double currentProgress);

  private:
    void draw();
    double secondsSince(std::chrono::steady_clock::time_point start) const;

    std::ostream& _out;
    bool _terminal;
    std::size_t _total;
    std::size_t _number = 0;
    std::size_t _done = 0;
    double _doneSeconds = 0;
    double _progress = 0;
    std::string _name;
    bool _lineShown = false;
    std::chrono::steady_clock::time_point _runStart;
    std::chrono::steady_clock::time_point _itemStart;
};

}  // namespace app
