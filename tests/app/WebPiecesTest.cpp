// The web server's rules on their own: which requests pass, which paths stay inside, and the
// zip archive an independent reader (unzip) accepts.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "app/web/PathGuard.h"
#include "app/web/WebAccess.h"
#include "app/web/ZipStream.h"
#include "support/TestHome.h"

namespace {

using app::web::AccessDecision;
using app::web::RequestCredentials;
using app::web::WebAccess;

TEST(WebAccess, DecidesByTokenPlaceMethodAndOrigin) {
    const std::string token(64, 'k');
    const WebAccess access(token, std::nullopt);
    const std::string cookie = "a=b; unwarp-token=" + token;
    struct Case {
        const char* what;
        RequestCredentials request;
        AccessDecision expected;
    };
    const std::vector<Case> cases{
        {"nothing", {"GET", {}, {}, {}, {}, {}, {}}, AccessDecision::noToken},
        {"query", {"GET", token, {}, {}, {}, {}, {}}, AccessDecision::allowed},
        {"cookie", {"GET", {}, {}, cookie, {}, {}, {}}, AccessDecision::allowed},
        {"prefix cookie name",
         {"GET", {}, {}, "xunwarp-token=" + token, {}, {}, {}},
         AccessDecision::noToken},
        {"longer token", {"GET", token + "k", {}, {}, {}, {}, {}}, AccessDecision::noToken},
        {"post with header", {"POST", {}, token, {}, {}, {}, {}}, AccessDecision::allowed},
        {"post, same origin",
         {"POST", {}, token, {}, "http://h:1", "h:1", {}},
         AccessDecision::allowed},
        {"post, other port",
         {"POST", {}, token, {}, "http://h:2", "h:1", {}},
         AccessDecision::forged},
        {"post, cookie only", {"POST", {}, {}, cookie, {}, {}, {}}, AccessDecision::forged},
        {"post, query only", {"POST", token, {}, {}, {}, {}, {}}, AccessDecision::forged},
        {"delete, no token", {"DELETE", {}, {}, {}, {}, {}, {}}, AccessDecision::noToken},
    };
    for (const auto& c : cases) EXPECT_EQ(access.decide(c.request), c.expected) << c.what;

    const WebAccess guarded(token, "pw");
    // "u:pw" and "u:px" in base64.
    EXPECT_EQ(guarded.decide({"GET", token, {}, {}, {}, {}, "Basic dTpwdw=="}),
              AccessDecision::allowed);
    EXPECT_EQ(guarded.decide({"GET", token, {}, {}, {}, {}, "Basic dTpweA=="}),
              AccessDecision::noPassword);
    EXPECT_EQ(guarded.decide({"GET", token, {}, {}, {}, {}, {}}), AccessDecision::noPassword);
    EXPECT_NE(app::web::makeAccessToken(), app::web::makeAccessToken());
}

TEST(PathGuard, ResolvesInsideTheRootsOnly) {
    testing_support::TestHome home;
    namespace fs = std::filesystem;
    fs::create_directories(home.path("root/sub"));
    fs::create_directories(home.path("rootless"));
    fs::create_directory_symlink(home.path("rootless"), home.path("root/out"));
    app::web::PathGuard guard;
    guard.addRoot(home.path("root"));
    struct Case {
        std::string path;
        bool inside;
    };
    const std::vector<Case> cases{
        {home.path("root"), true},
        {home.path("root/sub/new.jpg"), true},
        {home.path("root/sub/../sub/x"), true},
        {home.path("root/../rootless"), false},
        // A name that merely starts like the root is another folder.
        {home.path("rootless/x"), false},
        {home.path("root/out/x"), false},
        {home.path("root/nothere/../../rootless"), false},
        {"root/sub", false},
        {"", false},
        {std::string(home.path("root/a")) + std::string(1, '\0') + "b", false},
    };
    for (const auto& c : cases) EXPECT_EQ(guard.resolve(c.path).has_value(), c.inside) << c.path;
}

TEST(ZipStream, MakesAnArchiveThatUnzipReadsBack) {
    testing_support::TestHome home;
    const std::string a = home.path("a.jpg"), b = home.path("b.jpg");
    std::string big(200000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 300);
    std::ofstream(a, std::ios::binary) << big;
    std::ofstream(b, std::ios::binary) << "second";
    const auto names = app::web::uniqueArchiveNames({"x.jpg", "x.jpg", "y", "x-2.jpg"});
    EXPECT_EQ(names, (std::vector<std::string>{"x.jpg", "x-2.jpg", "y", "x-2-2.jpg"}));
    app::web::ZipStream zip({{a, names[0]}, {b, names[1]}});
    ASSERT_FALSE(zip.check());
    std::string archive;
    bool ok = true;
    for (std::string piece = zip.next(&ok); !piece.empty(); piece = zip.next(&ok)) {
        ASSERT_TRUE(ok);
        EXPECT_LE(piece.size(), std::size_t(1) << 16);
        archive += piece;
    }
    std::ofstream(home.path("out.zip"), std::ios::binary) << archive;
    std::string listing;
    // unzip -t checks every CRC and the directory.
    EXPECT_EQ(testing_support::runCommand("unzip -t '" + home.path("out.zip") + "' 2>&1", &listing),
              0)
        << listing;
    EXPECT_NE(listing.find("x-2.jpg"), std::string::npos) << listing;
    std::string first;
    testing_support::runCommand("unzip -p '" + home.path("out.zip") + "' x.jpg", &first);
    EXPECT_EQ(first, big);
    // The CRC of "123456789" is the check value of CRC-32.
    EXPECT_EQ(app::web::crc32Update(0, "123456789", 9), 0xCBF43926u);
    app::web::ZipStream missing({{home.path("none.jpg"), "none.jpg"}});
    EXPECT_TRUE(missing.check());
}

}  // namespace
