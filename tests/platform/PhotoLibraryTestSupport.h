// Helpers of the photo library tests: libraries under a test home, and small media made with
// ImageMagick, exiftool and ffmpeg.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/PhotoLibrary.h"
#include "support/TestHome.h"

namespace photolibrary_test {

inline platform::PhotoLibraryLocations locationsIn(const testing_support::TestHome& home) {
    return {home.path("Pictures"), home.path("data/photo-library.sqlite"),
            home.path("cache/thumbnails")};
}

inline std::shared_ptr<platform::PhotoLibrary> openLibrary(const testing_support::TestHome& home) {
    platform::ErrorRef error;
    auto library = platform::PhotoLibrary::open(locationsIn(home), &error);
    EXPECT_TRUE(library) << (error ? error->description() : "");
    return library;
}

// Runs a shell command and fails the test when it fails.
inline void run(const std::string& command) {
    std::string output;
    int status = testing_support::runCommand(command + " 2>&1", &output);
    ASSERT_EQ(status, 0) << command << "\n" << output;
}

// A JPEG of the given size at `path`, its folders made; `exiftoolArgs` tag it afterwards.
inline void makeJpeg(const std::string& path, int width, int height,
                     const std::string& exiftoolArgs = "") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    run("convert -size " + std::to_string(width) + "x" + std::to_string(height) +
        " gradient:red-blue '" + path + "'");
    if (!exiftoolArgs.empty())
        run("exiftool -q -overwrite_original " + exiftoolArgs + " '" + path + "'");
}

// A half-second movie at `path`; `extra` adds ffmpeg output options.
inline void makeMovie(const std::string& path, const std::string& extra = "") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    run("ffmpeg -nostdin -v error -y -f lavfi -i testsrc=size=64x48:rate=10 -t 0.5 "
        "-pix_fmt yuv420p " +
        extra + " '" + path + "'");
}

// Writes the Live Photo pairing key into a still's XMP, as Apple's cameras do.
inline void tagStillContentIdentifier(const std::string& path, const std::string& identifier) {
    const std::string packet = path + ".xmp";
    std::ofstream(packet)
        << "<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?><x:xmpmeta "
           "xmlns:x=\"adobe:ns:meta/\">"
           "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
           "rdf:about=\"\" xmlns:apple-fi=\"http://ns.apple.com/faceinfo/1.0/\" "
           "apple-fi:ContentIdentifier=\""
        << identifier << "\"/></rdf:RDF></x:xmpmeta><?xpacket end='w'?>";
    run("exiftool -q -overwrite_original '-XMP<=" + packet + "' '" + path + "'");
    std::filesystem::remove(packet);
}

inline std::vector<char> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline ino_t inodeOf(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

inline std::string nameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

}  // namespace photolibrary_test
