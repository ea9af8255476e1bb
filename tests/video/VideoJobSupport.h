// Helpers of the video media tests: runs one job to its completion and reads the output's
// pixels back through the ffmpeg command line.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/MediaTestSupport.h"
#include "video/VRVideoResizer2.h"

namespace video_test {

struct JobResult {
    std::optional<std::string> url;
    VRVideoResizeStatus status = VRVideoResizeStatus::failed;
    platform::ErrorRef error;
    int completions = 0;
    std::vector<double> fractions;
};

// Waits for the single completion; a job that does not end within a minute fails the test.
// The state is shared with the blocks handed to the job, so a job may outlive the waiter.
class JobWaiter {
  public:
    JobWaiter() : _state(std::make_shared<State>()) {}

    VRVideoResizer2::Progress progress() {
        return [state = _state](double f) {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->result.fractions.push_back(f);
        };
    }
    // The job drops every copy of this block when it is done with it; the waiter hears of that
    // through the token the block holds.
    VRVideoResizer2::Completion completion() {
        auto token = std::make_shared<Token>(_state);
        return
            [state = _state, token](const std::optional<std::string>& url,
                                    VRVideoResizeStatus status, const platform::ErrorRef& error) {
                std::lock_guard<std::mutex> lock(state->mutex);
                state->result.url = url;
                state->result.status = status;
                state->result.error = error;
                ++state->result.completions;
                state->changed.notify_all();
            };
    }
    JobResult wait() {
        std::unique_lock<std::mutex> lock(_state->mutex);
        EXPECT_TRUE(_state->changed.wait_for(lock, std::chrono::seconds(60), [&] {
            return _state->result.completions > 0;
        })) << "the job did not complete";
        return _state->result;
    }
    // What has been reported once the job has let go of its completion block: no second call
    // can come after that.
    JobResult settle() {
        std::unique_lock<std::mutex> lock(_state->mutex);
        EXPECT_TRUE(_state->changed.wait_for(lock, std::chrono::seconds(60), [&] {
            return _state->released;
        })) << "the job kept its completion block";
        return _state->result;
    }

  private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        JobResult result;
        bool released = false;
    };
    struct Token {
        explicit Token(std::shared_ptr<State> s) : state(std::move(s)) {}
        ~Token() {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->released = true;
            state->changed.notify_all();
        }
        std::shared_ptr<State> state;
    };
    std::shared_ptr<State> _state;
};

inline JobResult runJob(const std::string& source, const std::string& identifier,
                        const VRVideoResizeOptions& options) {
    auto resizer =
        VRVideoResizer2::resizerWithAsset(AVAsset::assetWithURL(source), identifier, options);
    JobWaiter waiter;
    resizer->resize(waiter.progress(), waiter.completion());
    waiter.wait();
    return waiter.settle();
}

inline std::string describe(const JobResult& r) {
    std::string text = "status " + std::to_string(static_cast<int>(r.status));
    if (r.error) text += " " + r.error->description();
    return text;
}

// One frame of a movie as raw planes in `pixelFormat` (ffmpeg's name), e.g. "yuv420p".
inline std::vector<std::uint8_t> rawFrame(const std::string& path, const std::string& pixelFormat,
                                          int frame = 0) {
    std::string bytes;
    testing_support::runCommand("ffmpeg -v error -i '" + path + "' -vf 'select=eq(n\\," +
                                    std::to_string(frame) + ")' -frames:v 1 -f rawvideo -pix_fmt " +
                                    pixelFormat + " - 2>/dev/null",
                                &bytes);
    return {bytes.begin(), bytes.end()};
}

}  // namespace video_test
