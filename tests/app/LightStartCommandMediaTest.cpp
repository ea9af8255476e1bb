#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "app/CommandSupport.h"
#include "platform/MediaTestSupport.h"

using command_test::filesIn;
using testing_support::TestHome;

namespace {

struct Outcome {
    int exitCode;
    std::string err;
};

// Runs `binary --home HOME arguments`; with `tell`, the dynamic loader tells on standard error
// which files it maps.
Outcome runBinary(const TestHome& home, const std::string& binary, const std::string& arguments,
                  bool tell) {
    const std::string errPath = home.path("stderr.txt");
    Outcome run;
    run.exitCode = testing_support::runCommand(
        std::string(tell ? "LD_DEBUG=files " : "") + "'" + binary + "' --home '" + home.root() +
        "' " + arguments + " 2>'" + errPath + "' </dev/null >/dev/null");
    std::ifstream in(errPath, std::ios::binary);
    run.err.assign(std::istreambuf_iterator<char>(in), {});
    return run;
}

bool mapped(const std::string& loaderLines, const std::string& name) {
    return loaderLines.find(name) != std::string::npos;
}

std::string makeJpeg(const TestHome& home) {
    const std::string path = home.path("still.jpg");
    EXPECT_EQ(testing_support::runCommand("convert -size 120x90 gradient:red-blue '" + path + "'"),
              0);
    return path;
}

// The commands that meet no movie and no HEIC picture start without FFmpeg, libheif and the
// module that holds them, and those without photos without exiv2; a job maps the module it
// needs when it needs it.
TEST(LightStartCommandMedia, OnlyMovieAndHeicWorkLoadsTheMediaModule) {
    TestHome home;
    const std::string still = makeJpeg(home);
    const std::string clip = media_test::makeMovie(
        home, "clip.mov", "-f lavfi -i testsrc2=size=96x64:rate=10 -t 0.3 -c:v libx264");
    ASSERT_FALSE(clip.empty());
    std::filesystem::create_directories(home.path("out"));

    // Which of the modules each command maps: the media module (FFmpeg, libheif), the metadata
    // module (exiv2).
    struct Case {
        std::string arguments;
        bool media;
        bool metadata;
    };
    const std::string out = home.path("out");
    const Case cases[] = {
        {"templates", false, false},
        {"size --template uw-133 --media photo --source 4032x3024", false, false},
        {"size --template uw-133 --media video --source 1920x1080", false, false},
        {"settings list", false, false},
        {"process --template uw-133 --out '" + out + "' '" + still + "'", false, true},
        {"process --template uw-133 --out '" + out + "' '" + clip + "'", true, false},
    };
    for (const auto& c : cases) {
        const Outcome run = runBinary(home, UNWARP_BINARY, c.arguments, true);
        ASSERT_EQ(run.exitCode, 0) << c.arguments << "\n" << run.err;
        // The loader's own lines are there, so that an absent name means something.
        ASSERT_TRUE(mapped(run.err, "libc.so")) << c.arguments;
        EXPECT_EQ(mapped(run.err, "unwarp-media.so"), c.media) << c.arguments;
        EXPECT_EQ(mapped(run.err, "libavcodec"), c.media) << c.arguments;
        EXPECT_EQ(mapped(run.err, "libheif"), c.media) << c.arguments;
        EXPECT_EQ(mapped(run.err, "unwarp-metadata.so"), c.metadata) << c.arguments;
        EXPECT_EQ(mapped(run.err, "libexiv2"), c.metadata) << c.arguments;
        // No crash reports wait, so nothing is posted (FFmpeg brings TLS of its own).
        EXPECT_FALSE(mapped(run.err, "unwarp-report.so")) << c.arguments;
        if (!c.media) {
            EXPECT_FALSE(mapped(run.err, "libssl")) << c.arguments;
        }
    }
    EXPECT_EQ(filesIn(home.path("out")), (std::vector<std::string>{"clip.mov", "still.jpg"}));
}

// Places `file` (a path, or a name beside the built program) into `folder`: a hard link where the
// file system allows, else a copy.
std::string place(const std::string& file, const std::string& folder) {
    std::filesystem::path from(file);
    if (!from.has_parent_path()) from = std::filesystem::path(UNWARP_BINARY).parent_path() / file;
    const std::string to = folder + "/" + from.filename().string();
    std::error_code linkError;
    std::filesystem::create_hard_link(from, to, linkError);
    if (linkError) std::filesystem::copy_file(from, to);
    return to;
}

// A program whose media module is missing still resizes photos; a movie fails with words that
// say what is missing, and leaves no file. Without the metadata module a photo fails likewise.
TEST(LightStartCommandMedia, AMissingModuleFailsItsWorkClearly) {
    TestHome home;
    const std::string still = makeJpeg(home);
    const std::string clip = media_test::makeMovie(
        home, "clip.mov", "-f lavfi -i testsrc2=size=96x64:rate=10 -t 0.3 -c:v libx264");
    ASSERT_FALSE(clip.empty());
    std::filesystem::create_directories(home.path("bin"));
    std::filesystem::create_directories(home.path("out"));
    const std::string out = home.path("out");
    const std::string lone = place(UNWARP_BINARY, home.path("bin"));

    // The program alone: a photo's metadata cannot be carried, so its job fails.
    Outcome photo = runBinary(
        home, lone, "process --template uw-133 --out '" + out + "' '" + still + "'", false);
    EXPECT_EQ(photo.exitCode, 1) << photo.err;
    EXPECT_NE(photo.err.find("Photo metadata cannot be handled here"), std::string::npos)
        << photo.err;
    EXPECT_NE(photo.err.find("unwarp-metadata.so"), std::string::npos) << photo.err;
    EXPECT_TRUE(filesIn(out).empty());

    // With every module but the media one: photos work, movies fail.
    place("unwarp-metadata.so", home.path("bin"));
    place("unwarp-report.so", home.path("bin"));
    photo = runBinary(home, lone, "process --template uw-133 --out '" + out + "' '" + still + "'",
                      false);
    EXPECT_EQ(photo.exitCode, 0) << photo.err;
    EXPECT_EQ(filesIn(out), (std::vector<std::string>{"still.jpg"}));

    const Outcome movie = runBinary(
        home, lone, "process --template uw-133 --out '" + out + "' '" + clip + "'", false);
    // The job's failure, not a usage error and not a crash, in words that name what is missing.
    EXPECT_EQ(movie.exitCode, 1) << movie.err;
    EXPECT_NE(movie.err.find("Movies and HEIC pictures cannot be handled here"), std::string::npos)
        << movie.err;
    EXPECT_NE(movie.err.find("unwarp-media.so"), std::string::npos) << movie.err;
    EXPECT_EQ(filesIn(out), (std::vector<std::string>{"still.jpg"}));
    EXPECT_TRUE(filesIn(home.path("documents/_vrtempvideodir")).empty());
}

}  // namespace
