// Helpers of the platform media tests: movies generated with the ffmpeg command line, ffprobe
// as the independent reader, and a small serial queue for request loops.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "platform/Dispatch.h"
#include "support/TestHome.h"

namespace media_test {

// Runs ffmpeg with the arguments to make `name` under the home; the path, or empty on failure.
inline std::string makeMovie(const testing_support::TestHome& home, const std::string& name,
                             const std::string& arguments) {
    std::string path = home.path(name);
    std::string command =
        "ffmpeg -nostdin -hide_banner -v error -y " + arguments + " '" + path + "' 2>&1";
    std::string output;
    int status = testing_support::runCommand(command, &output);
    if (status != 0) {
        ADD_FAILURE() << "ffmpeg failed: " << command << "\n" << output;
        return {};
    }
    return path;
}

// ffprobe's compact output for the arguments (e.g. "-show_streams"), one "key=value" per line.
inline std::string probe(const std::string& path, const std::string& arguments) {
    std::string output;
    testing_support::runCommand(
        "ffprobe -v error " + arguments + " -of default=nw=1 '" + path + "' 2>&1", &output);
    return output;
}

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The frames of one stream as ffmpeg's framemd5 lists them (checksums of the packets, copied).
inline std::string framemd5(const std::string& path, const char* stream) {
    std::string out;
    testing_support::runCommand("ffmpeg -v error -i '" + path + "' -map 0:" + stream +
                                    " -c copy -f framemd5 - 2>&1 | grep -v '^#'",
                                &out);
    return out;
}

// Two seconds of random noise encoded losslessly: far too large for the 64 KiB limit below.
inline std::string makeNoiseMovie(const testing_support::TestHome& home) {
    return makeMovie(home, "noise.mov",
                     "-f lavfi -i nullsrc=size=320x240:rate=25 -t 2 -vf "
                     "'geq=random(1)*255:128:128' -c:v libx264 -crf 0");
}

// Runs one test of this test program in a child whose files may not grow past 64 KiB, standing
// in for a full disk. `environment` is "NAME='value' ..." for the child; returns what it printed.
inline std::string runUnderFileSizeLimit(const std::string& environment, const std::string& test) {
    char self[4096] = {0};
    if (::readlink("/proc/self/exe", self, sizeof self - 1) <= 0) {
        ADD_FAILURE() << "cannot find this test program";
        return {};
    }
    std::string output;
    testing_support::runCommand("ulimit -f 64; trap '' XFSZ; " + environment + " '" + self +
                                    "' --gtest_filter=" + test + " 2>&1",
                                &output);
    return output;
}

// A serial queue on one thread, standing in for the platform's queues.
class TestQueue final : public platform::DispatchQueue {
  public:
    TestQueue() : _thread([this] { loop(); }) {}
    ~TestQueue() override {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _stop = true;
        }
        _changed.notify_all();
        _thread.join();
    }
    const std::string& label() const override { return _label; }
    bool isConcurrent() const override { return false; }
    void async(platform::DispatchBlock block) override {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _blocks.emplace_back(std::chrono::steady_clock::now(), std::move(block));
        }
        _changed.notify_all();
    }
    void sync(const platform::DispatchBlock& block) override {
        std::mutex m;
        std::condition_variable done;
        bool finished = false;
        async([&] {
            block();
            std::lock_guard<std::mutex> lock(m);
            finished = true;
            done.notify_all();
        });
        std::unique_lock<std::mutex> lock(m);
        done.wait(lock, [&] { return finished; });
    }
    void asyncBarrier(platform::DispatchBlock block) override { async(std::move(block)); }
    void syncBarrier(const platform::DispatchBlock& block) override { sync(block); }
    void after(std::chrono::milliseconds delay, platform::DispatchBlock block) override {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _blocks.emplace_back(std::chrono::steady_clock::now() + delay, std::move(block));
        }
        _changed.notify_all();
    }
    bool isCurrent() const override { return std::this_thread::get_id() == _thread.get_id(); }

  private:
    void loop() {
        std::unique_lock<std::mutex> lock(_mutex);
        for (;;) {
            if (_stop) return;
            auto now = std::chrono::steady_clock::now();
            auto due = _blocks.end();
            for (auto it = _blocks.begin(); it != _blocks.end(); ++it) {
                if (it->first <= now) {
                    due = it;
                    break;
                }
            }
            if (due == _blocks.end()) {
                _changed.wait_for(lock, std::chrono::milliseconds(1));
                continue;
            }
            platform::DispatchBlock block = std::move(due->second);
            _blocks.erase(due);
            lock.unlock();
            block();
            lock.lock();
        }
    }

    std::string _label = "test-queue";
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<std::pair<std::chrono::steady_clock::time_point, platform::DispatchBlock>> _blocks;
    bool _stop = false;
    std::thread _thread;
};

}  // namespace media_test
