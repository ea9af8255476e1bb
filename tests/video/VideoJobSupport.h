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
class JobWaiter {
  public:
    VRVideoResizer2::Progress progress() {
        return [this](double f) {
            std::lock_guard<std::mutex> lock(_mutex);
            _result.fractions.push_back(f);
        };
    }
    VRVideoResizer2::Completion completion() {
        return [this](const std::optional<std::string>& url, VRVideoResizeStatus status,
                      const platform::ErrorRef& error) {
            std::lock_guard<std::mutex> lock(_mutex);
            _result.url = url;
            _result.status = status;
            _result.error = error;
            ++_result.completions;
            _done.notify_all();
        };
    }
    JobResult wait() {
        std::unique_lock<std::mutex> lock(_mutex);
        EXPECT_TRUE(_done.wait_for(lock, std::chrono::seconds(60), [&] {
            return _result.completions > 0;
        })) << "the job did not complete";
        return _result;
    }
    // What has been reported so far, after a grace period for a second completion.
    JobResult settle() {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::lock_guard<std::mutex> lock(_mutex);
        return _result;
    }

  private:
    std::mutex _mutex;
    std::condition_variable _done;
    JobResult _result;
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
