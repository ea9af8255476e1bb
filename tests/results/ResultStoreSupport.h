// Helpers of the result store tests: adding through the main queue and waiting for the answer.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "platform/Dispatch.h"
#include "results/ResultManager.h"

namespace resultstore_test {

struct AddAnswer {
    bool answered = false;
    bool success = false;
    std::size_t index = 0;
};

// Adds the file as a local result (or, with `photo`, a library identifier as a photo result)
// and runs the main queue until the store answers.
inline AddAnswer addAndWait(ResultManager& store, const std::string& fileOrIdentifier,
                            bool photo = false) {
    AddAnswer answer;
    auto completion = [&answer](bool success, std::size_t index) {
        answer = {true, success, index};
    };
    if (photo)
        store.addPhotoAssetResultWith(fileOrIdentifier, completion);
    else
        store.addLocalAssetResultWith(fileOrIdentifier, completion);
    EXPECT_TRUE(
        platform::MainRunLoop::runUntil([&] { return answer.answered; }, std::chrono::seconds(30)));
    return answer;
}

inline void writeFile(const std::string& path, const std::string& text = "data") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

inline std::string contentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace resultstore_test
