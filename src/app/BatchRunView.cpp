#include "app/BatchRunView.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace app {
namespace {

constexpr int kBarWidth = 20;
// Names are cut to keep the status line on one row of a narrow terminal.
constexpr std::size_t kNameWidth = 32;

std::string shortName(const std::string& name) {
    const auto slash = name.rfind('/');
    std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    if (base.size() > kNameWidth) base = base.substr(0, kNameWidth - 3) + "...";
    return base;
}

std::string countOf(std::size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

BatchRunView::BatchRunView(std::ostream& out, bool terminal, std::size_t total)
    : _out(out),
      _terminal(terminal),
      _total(total),
      _runStart(std::chrono::steady_clock::now()),
      _itemStart(_runStart) {}

double BatchRunView::secondsSince(std::chrono::steady_clock::time_point start) const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BatchRunView::itemStarted(std::size_t number, const std::string& name) {
    _number = number;
    _name = name;
    _progress = 0;
    _itemStart = std::chrono::steady_clock::now();
    if (_terminal) {
        draw();
    } else {
        _out << "[" << number << "/" << _total << "] " << name << "\n" << std::flush;
    }
}

void BatchRunView::itemProgress(double progress) {
    _progress = std::clamp(progress, 0.0, 1.0);
    if (_terminal) draw();
}

void BatchRunView::itemEnded() {
    ++_done;
    _doneSeconds += secondsSince(_itemStart);
    _progress = 0;
}

void BatchRunView::note(const std::string& line) {
    clearLine();
    _out << line << "\n" << std::flush;
    if (_terminal && _number > 0 && _done < _number) draw();
}

void BatchRunView::summary(std::size_t results, std::size_t failures, std::size_t left,
                           bool cancelled) {
    clearLine();
    std::ostringstream seconds;
    seconds.precision(1);
    seconds << std::fixed << secondsSince(_runStart);
    _out << (cancelled  ? "Cancelled: "
             : left > 0 ? "Stopped: "
                        : "Done: ")
         << countOf(results, "result") << ", " << countOf(failures, "failure");
    if (left > 0) _out << ", " << left << " not processed";
    _out << " in " << seconds.str() << " s\n" << std::flush;
}

std::optional<std::size_t> BatchRunView::ask(const std::string& title, const std::string& message,
                                             const std::vector<std::string>& buttons) {
    clearLine();
    std::string flat = message;
    std::replace(flat.begin(), flat.end(), '\n', ' ');
    _out << title << "\n" << flat << "\n";
    for (std::size_t i = 0; i < buttons.size(); ++i)
        _out << (i ? " / " : "") << "[" << buttons[i].substr(0, 1) << "]" << buttons[i].substr(1);
    _out << "? " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer)) {
        std::cin.clear();
        _out << "\n";
        return std::nullopt;
    }
    const auto first = answer.find_first_not_of(" \t");
    if (first == std::string::npos) return std::nullopt;
    const char letter = static_cast<char>(std::tolower(static_cast<unsigned char>(answer[first])));
    for (std::size_t i = 0; i < buttons.size(); ++i)
        if (!buttons[i].empty() &&
            std::tolower(static_cast<unsigned char>(buttons[i][0])) == letter)
            return i;
    // "y" stands for the button that goes on, the last one.
    if (letter == 'y' && !buttons.empty()) return buttons.size() - 1;
    return std::nullopt;
}

void BatchRunView::draw() {
    std::string line = "[" + std::to_string(_number) + "/" + std::to_string(_total) + "] " +
                       shortName(_name) + "  " + bar(_progress, kBarWidth);
    const std::size_t remaining = _total > _number ? _total - _number : 0;
    if (auto left = timeLeft(_done, _doneSeconds, remaining, secondsSince(_itemStart), _progress))
        line += "  " + clock(*left) + " left";
    // Back to the line's start, the line, then the rest of the row erased.
    _out << "\r" << line << "\x1b[K" << std::flush;
    _lineShown = true;
}

void BatchRunView::clearLine() {
    if (!_lineShown) return;
    _out << "\r\x1b[K" << std::flush;
    _lineShown = false;
}

std::string BatchRunView::bar(double fraction, int width) {
    const double f = std::clamp(fraction, 0.0, 1.0);
    const int filled = static_cast<int>(f * width);
    return "[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " +
           std::to_string(static_cast<int>(f * 100)) + "%";
}

std::string BatchRunView::clock(double seconds) {
    const long total = std::lround(std::max(0.0, seconds));
    char text[32];
    if (total >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60,
                      total % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", total / 60, total % 60);
    return text;
}

std::optional<double> BatchRunView::timeLeft(std::size_t done, double doneSeconds,
                                             std::size_t remaining, double currentSeconds,
                                             double currentProgress) {
    // The current item's own pace needs a little progress before it says anything.
    std::optional<double> current;
    if (currentProgress >= 0.05) current = currentSeconds / currentProgress;
    std::optional<double> mean;
    if (done > 0) mean = doneSeconds / static_cast<double>(done);
    if (!current && !mean) return std::nullopt;
    const double itemTotal = current.value_or(*mean);
    const double perItem = mean.value_or(itemTotal);
    return std::max(0.0, itemTotal - currentSeconds) + perItem * static_cast<double>(remaining);
}

}  // namespace app
