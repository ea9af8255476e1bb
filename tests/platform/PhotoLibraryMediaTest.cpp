#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "platform/PhotoLibrary.h"
#include "platform/PhotoLibraryTestSupport.h"
#include "platform/linux/PhotoLibraryFacts.h"
#include "platform/linux/PhotoLibraryLinux.h"
#include "support/TestHome.h"

using namespace platform;
using namespace photolibrary_test;
using testing_support::TestHome;

namespace {

PHChangeRequest savePhoto(const std::string& album, const std::string& file,
                          const std::string& name = "") {
    return {album, {{PHAssetResourceTypePhoto, file, name}}, {}};
}

std::vector<std::string> resourcePaths(const PHAsset& asset) {
    std::vector<std::string> paths;
    for (const auto& r : asset.resources) paths.push_back(r.path);
    return paths;
}

}  // namespace

TEST(PhotoLibraryRoot, DefaultFollowsHomeThenUserDirsThenPictures) {
    TestHome home;
    struct Row {
        std::optional<std::string> homeRoot;
        std::string userDirs;  // contents of user-dirs.dirs; "-" for no file
        std::string expected;
    } rows[] = {
        {"/srv/h", "XDG_PICTURES_DIR=\"$HOME/Bilder\"\n", "/srv/h/Pictures"},
        {std::nullopt, "XDG_PICTURES_DIR=\"$HOME/Bilder\"\n", "/home/u/Bilder"},
        {std::nullopt, "# comment\nXDG_MUSIC_DIR=\"$HOME/M\"\nXDG_PICTURES_DIR=\"/data/pics/\"\n",
         "/data/pics"},
        {std::nullopt, "-", "/home/u/Pictures"},
        {std::nullopt, "XDG_PICTURES_DIR=\"$HOME/\"\n", "/home/u/Pictures"},
        {std::nullopt, "XDG_PICTURES_DIR=\"relative/pics\"\n", "/home/u/Pictures"},
        {std::nullopt, "XDG_PICTURES_DIR=$HOME/unquoted\n", "/home/u/Pictures"},
    };
    for (const auto& row : rows) {
        const std::string file = home.path("user-dirs.dirs");
        std::filesystem::remove(file);
        if (row.userDirs != "-") std::ofstream(file) << row.userDirs;
        EXPECT_EQ(defaultPhotoLibraryRoot(row.homeRoot, "/home/u", file), row.expected)
            << row.userDirs;
    }
}

TEST(PhotoLibraryRoot, LocationsUnderHomeAndLibrarySetting) {
    TestHome home;
    auto locations = defaultPhotoLibraryLocations(std::nullopt);
    EXPECT_EQ(locations.root, home.path("Pictures"));
    EXPECT_EQ(locations.thumbnailsCache, home.path("cache/thumbnails"));
    EXPECT_EQ(locations.catalogPath.rfind(home.root(), 0), 0u);
    EXPECT_EQ(defaultPhotoLibraryLocations(std::string("/mnt/photos")).root, "/mnt/photos");
}

TEST(PhotoLibraryAccess, StatusFollowsTheRoot) {
    TestHome home;
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    EXPECT_EQ(library->authorizationStatusForAccessLevel(PHAccessLevelReadWrite),
              PHAuthorizationStatusNotDetermined);
    // Without access nothing is saved.
    std::ofstream(home.path("in.jpg")) << "x";
    auto refused = library->performChangesAndWait(savePhoto("", home.path("in.jpg")));
    ASSERT_TRUE(refused.error);
    EXPECT_EQ(refused.error->code(), PHPhotosErrorAccessUserDenied);
    EXPECT_EQ(library->requestAuthorizationForAccessLevel(PHAccessLevelAddOnly),
              PHAuthorizationStatusAuthorized);
    EXPECT_TRUE(std::filesystem::is_directory(home.path("Pictures")));

    TestHome other;
    std::ofstream(other.path("Pictures")) << "a file where the folder should be";
    auto blocked = openLibrary(other);
    ASSERT_TRUE(blocked);
    EXPECT_EQ(blocked->requestAuthorizationForAccessLevel(PHAccessLevelReadWrite),
              PHAuthorizationStatusDenied);
}

TEST(PhotoLibraryChanges, FreeNamesNeverReplaceAFile) {
    TestHome home;
    makeJpeg(home.path("src/shot.jpg"), 40, 30);
    makeJpeg(home.path("Pictures/Trip/shot.jpg"), 20, 10);  // the user's own file
    makeMovie(home.path("Pictures/Trip/live.mov"));
    makeMovie(home.path("src/live.mov"));
    const auto userBytes = bytesOf(home.path("Pictures/Trip/shot.jpg"));
    auto library = openLibrary(home);
    ASSERT_TRUE(library);

    std::vector<std::string> names;
    for (int i = 0; i < 2; ++i) {
        auto result = library->performChangesAndWait(savePhoto("Trip", home.path("src/shot.jpg")));
        ASSERT_FALSE(result.error) << result.error->description();
        auto fetched =
            library->fetchAssetsWithLocalIdentifiers({result.placeholderLocalIdentifier}, {});
        ASSERT_EQ(fetched.count(), 1u);
        names.push_back(nameOf(fetched.firstObject()->resources[0].path));
    }
    // A Live Photo needs one stem free for both of its files.
    auto live = library->performChangesAndWait(
        {"Trip",
         {{PHAssetResourceTypePhoto, home.path("src/shot.jpg"), "live.jpg"},
          {PHAssetResourceTypePairedVideo, home.path("src/live.mov"), ""}},
         {}});
    ASSERT_FALSE(live.error) << live.error->description();
    auto pair = library->fetchAssetsWithLocalIdentifiers({live.placeholderLocalIdentifier}, {});
    ASSERT_EQ(pair.count(), 1u);
    for (const auto& r : pair.firstObject()->resources) names.push_back(nameOf(r.path));

    EXPECT_EQ(names,
              (std::vector<std::string>{"shot 2.jpg", "shot 3.jpg", "live 2.jpg", "live 2.mov"}));
    EXPECT_EQ(bytesOf(home.path("Pictures/Trip/shot.jpg")), userBytes);
    EXPECT_EQ(bytesOf(home.path("Pictures/Trip/shot 2.jpg")), bytesOf(home.path("src/shot.jpg")));
    // No temporary is left beside the results.
    for (const auto& name : testing_support::namesIn(home.path("Pictures/Trip")))
        EXPECT_NE(name[0], '.') << name;
}

TEST(PhotoLibraryChanges, BadRequestsWriteNothing) {
    TestHome home;
    makeJpeg(home.path("src/a.jpg"), 16, 16);
    std::ofstream(home.path("src/notes.txt")) << "text";
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    library->requestAuthorizationForAccessLevel(PHAccessLevelAddOnly);
    struct Row {
        const char* what;
        PHChangeRequest request;
        std::int64_t code;
    } rows[] = {
        {"a text file as a photo", savePhoto("A", home.path("src/notes.txt")),
         PHPhotosErrorInvalidResource},
        {"a photo as a video",
         {"A", {{PHAssetResourceTypeVideo, home.path("src/a.jpg"), ""}}, {}},
         PHPhotosErrorInvalidResource},
        {"a paired video alone",
         {"A", {{PHAssetResourceTypePairedVideo, home.path("src/a.jpg"), "a.mov"}}, {}},
         PHPhotosErrorInvalidResource},
        {"an album outside the root", savePhoto("../escape", home.path("src/a.jpg")),
         PHPhotosErrorInvalidResource},
        {"a hidden album", savePhoto(".hidden", home.path("src/a.jpg")),
         PHPhotosErrorInvalidResource},
        {"a missing file", savePhoto("A", home.path("src/missing.jpg")), ENOENT},
        {"adding an unknown asset", {"A", {}, {"no-such-asset"}}, PHPhotosErrorIdentifierNotFound},
        {"a creation whose further album takes an unknown asset",
         {"A", {{PHAssetResourceTypePhoto, home.path("src/a.jpg"), ""}}, {}, {{"B", {"gone"}}}},
         PHPhotosErrorIdentifierNotFound},
        {"a further album outside the root",
         {"A", {{PHAssetResourceTypePhoto, home.path("src/a.jpg"), ""}}, {}, {{"../B", {}}}},
         PHPhotosErrorInvalidResource},
    };
    for (const auto& row : rows) {
        auto result = library->performChangesAndWait(row.request);
        ASSERT_TRUE(result.error) << row.what;
        EXPECT_EQ(result.error->code(), row.code) << row.what;
        EXPECT_TRUE(result.placeholderLocalIdentifier.empty()) << row.what;
    }
    EXPECT_FALSE(std::filesystem::exists(home.path("escape")));
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures/A")));
    EXPECT_FALSE(std::filesystem::exists(home.path("Pictures/B")));
    EXPECT_FALSE(std::filesystem::exists(home.path("B")));
    EXPECT_EQ(library->fetchAssetsWithOptions({}).count(), 0u);
}

TEST(PhotoLibraryLivePhoto, SavedAsOneCreationReadBackAsPair) {
    TestHome home;
    makeJpeg(home.path("src/IMG_1.jpg"), 48, 36);
    makeMovie(home.path("src/IMG_1.mov"));
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    library->requestAuthorizationForAccessLevel(PHAccessLevelAddOnly);
    auto result = library->performChangesAndWait(
        {"Uwrp photos",
         {{PHAssetResourceTypePhoto, home.path("src/IMG_1.jpg"), ""},
          {PHAssetResourceTypePairedVideo, home.path("src/IMG_1.mov"), ""}},
         {}});
    ASSERT_FALSE(result.error) << result.error->description();
    // The pair was saved without content identifiers: only the catalogue knows it, so it must
    // survive a reopen and a rescan.
    library.reset();
    library = openLibrary(home);
    auto all = library->fetchAssetsWithOptions({});
    ASSERT_EQ(all.count(), 1u);
    const PHAsset& asset = *all.firstObject();
    EXPECT_EQ(asset.localIdentifier, result.placeholderLocalIdentifier);
    EXPECT_TRUE(asset.isLivePhoto());
    EXPECT_EQ(asset.mediaType, PHAssetMediaTypeImage);
    ASSERT_EQ(asset.resources.size(), 2u);
    EXPECT_EQ(asset.resources[0].type, PHAssetResourceTypePhoto);
    EXPECT_EQ(asset.resources[1].type, PHAssetResourceTypePairedVideo);
    EXPECT_EQ(resourcePaths(asset),
              (std::vector<std::string>{home.path("Pictures/Uwrp photos/IMG_1.jpg"),
                                        home.path("Pictures/Uwrp photos/IMG_1.mov")}));
    EXPECT_EQ(asset.pixelWidth, 48u);

    // Deleting the still outside leaves the movie as a plain video.
    std::filesystem::remove(home.path("Pictures/Uwrp photos/IMG_1.jpg"));
    ASSERT_FALSE(library->rescan());
    all = library->fetchAssetsWithOptions({});
    ASSERT_EQ(all.count(), 1u);
    EXPECT_FALSE(all.firstObject()->isLivePhoto());
    EXPECT_EQ(all.firstObject()->mediaType, PHAssetMediaTypeVideo);
}

TEST(PhotoLibraryLivePhoto, PairedByContentIdentifierWhenFound) {
    TestHome home;
    struct Row {
        const char* stem;
        const char* stillId;
        const char* movieId;
        bool paired;
    } rows[] = {
        {"match", "A1", "A1", true},
        {"differ", "A2", "B2", false},
        {"stillonly", "A3", "", false},
        {"movieonly", "", "A4", false},
    };
    for (const auto& row : rows) {
        const std::string still = home.path(std::string("Pictures/Camera/") + row.stem + ".jpg");
        makeJpeg(still, 30, 20);
        if (*row.stillId) tagStillContentIdentifier(still, row.stillId);
        std::string movieArgs;
        if (*row.movieId)
            movieArgs = std::string("-metadata com.apple.quicktime.content.identifier=") +
                        row.movieId + " -movflags use_metadata_tags";
        makeMovie(home.path(std::string("Pictures/Camera/") + row.stem + ".mov"), movieArgs);
    }
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    auto all = library->fetchAssetsWithOptions({});
    for (const auto& row : rows) {
        int live = 0, pieces = 0;
        for (const auto& asset : all.objects()) {
            if (nameOf(asset.resources[0].path).rfind(row.stem, 0) != 0) continue;
            ++pieces;
            live += asset.isLivePhoto() && asset.resources.size() == 2;
        }
        EXPECT_EQ(pieces, row.paired ? 1 : 2) << row.stem;
        EXPECT_EQ(live, row.paired ? 1 : 0) << row.stem;
    }
}

TEST(PhotoLibraryAlbums, OriginalsAreHardLinksOfOneAsset) {
    TestHome home;
    makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 32);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    auto original = library->fetchAssetsWithOptions({});
    ASSERT_EQ(original.count(), 1u);
    const std::string id = original.firstObject()->localIdentifier;

    auto result = library->performChangesAndWait({"Uwrp originals", {}, {id}});
    ASSERT_FALSE(result.error) << result.error->description();
    const std::string link = home.path("Pictures/Uwrp originals/orig.jpg");
    EXPECT_EQ(inodeOf(link), inodeOf(home.path("Pictures/DCIM/orig.jpg")));
    // Adding again changes nothing.
    ASSERT_FALSE(library->performChangesAndWait({"Uwrp originals", {}, {id}}).error);
    EXPECT_EQ(testing_support::namesIn(home.path("Pictures/Uwrp originals")).size(), 1u);

    for (int reopen = 0; reopen < 2; ++reopen) {
        EXPECT_EQ(library->fetchAssetsWithOptions({}).count(), 1u);
        auto inOriginals = library->fetchAssetsInAssetCollection(result.albumLocalIdentifier, {});
        ASSERT_EQ(inOriginals.count(), 1u);
        EXPECT_EQ(inOriginals.firstObject()->localIdentifier, id);
        auto dcim = library->albumWithTitle("DCIM");
        ASSERT_TRUE(dcim);
        EXPECT_EQ(dcim->estimatedAssetCount, 1u);
        library.reset();
        library = openLibrary(home);
    }

    // The user deletes the first copy: the asset lives on in the originals album.
    std::filesystem::remove(home.path("Pictures/DCIM/orig.jpg"));
    ASSERT_FALSE(library->rescan());
    auto left = library->fetchAssetsWithOptions({});
    ASSERT_EQ(left.count(), 1u);
    EXPECT_EQ(left.firstObject()->localIdentifier, id);
    EXPECT_EQ(resourcePaths(*left.firstObject()), std::vector<std::string>{link});
    EXPECT_EQ(library->albumWithTitle("DCIM")->estimatedAssetCount, 0u);
}

TEST(PhotoLibraryAlbums, OneChangeSavesIntoOneAlbumAndLinksIntoAnother) {
    TestHome home;
    makeJpeg(home.path("Pictures/DCIM/orig.jpg"), 32, 32);
    makeJpeg(home.path("src/result.jpg"), 16, 16);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    const std::string original = library->fetchAssetsWithOptions({}).firstObject()->localIdentifier;

    PHChangeRequest request = savePhoto("Results", home.path("src/result.jpg"));
    request.albumAdditions = {{"Originals", {original}}};
    auto result = library->performChangesAndWait(request);
    ASSERT_FALSE(result.error) << result.error->description();
    EXPECT_TRUE(std::filesystem::exists(home.path("Pictures/Results/result.jpg")));
    EXPECT_EQ(inodeOf(home.path("Pictures/Originals/orig.jpg")),
              inodeOf(home.path("Pictures/DCIM/orig.jpg")));
    auto originals = library->albumWithTitle("Originals");
    ASSERT_TRUE(originals);
    auto members = library->fetchAssetsInAssetCollection(originals->localIdentifier, {});
    ASSERT_EQ(members.count(), 1u);
    EXPECT_EQ(members.firstObject()->localIdentifier, original);
    EXPECT_EQ(library->fetchAssetsWithOptions({}).count(), 2u);
}

TEST(PhotoLibraryGone, DeletedAssetAnswersGoneEverywhere) {
    TestHome home;
    makeJpeg(home.path("Pictures/a.jpg"), 64, 64);
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    const std::string id = library->fetchAssetsWithOptions({}).firstObject()->localIdentifier;
    std::filesystem::remove(home.path("Pictures/a.jpg"));

    // Before any rescan the catalogue still lists it, but its bytes are gone.
    ErrorRef error;
    EXPECT_FALSE(library->requestThumbnail(id, 128, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), PHPhotosErrorDomain);
    EXPECT_EQ(error->code(), PHPhotosErrorIdentifierNotFound);

    ASSERT_FALSE(library->rescan());
    EXPECT_EQ(library->fetchAssetsWithLocalIdentifiers({id}, {}).count(), 0u);
    error = nullptr;
    EXPECT_FALSE(library->requestThumbnail(id, 128, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), PHPhotosErrorIdentifierNotFound);
    auto add = library->performChangesAndWait({"Later", {}, {id}});
    ASSERT_TRUE(add.error);
    EXPECT_EQ(add.error->code(), PHPhotosErrorIdentifierNotFound);
    EXPECT_TRUE(testing_support::namesIn(home.path("Pictures/Later")).empty());
}

TEST(PhotoLibraryFacts, DatesSizesAndPlacesFromTheFiles) {
    TestHome home;
    makeJpeg(home.path("Pictures/dated.jpg"), 60, 40,
             "-DateTimeOriginal='2021:06:15 08:30:00' -OffsetTimeOriginal='+02:00' "
             "-GPSLatitude=48.5 -GPSLatitudeRef=N -GPSLongitude=2.25 -GPSLongitudeRef=W");
    makeJpeg(home.path("Pictures/turned.jpg"), 60, 40, "-Orientation#=6");
    makeJpeg(home.path("Pictures/plain.jpg"), 10, 10);
    run("touch -d '2019-01-02 03:04:05 UTC' '" + home.path("Pictures/plain.jpg") + "'");
    makeMovie(home.path("Pictures/clip.mov"), "-metadata creation_time=2020-02-03T04:05:06Z");
    run("exiftool -q -overwrite_original -Rotation=90 '" + home.path("Pictures/clip.mov") + "'");
    // Any format the codecs read is a photo of the library, WebP included.
    makeJpeg(home.path("Pictures/web.webp"), 30, 20);
    run("touch -d '2018-01-01 00:00:00 UTC' '" + home.path("Pictures/web.webp") + "'");
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    std::map<std::string, PHAsset> byName;
    auto all = library->fetchAssetsWithOptions({});
    for (const auto& a : all.objects()) byName[nameOf(a.resources[0].path)] = a;
    ASSERT_EQ(byName.size(), 5u);
    EXPECT_EQ(byName["web.webp"].mediaType, PHAssetMediaTypeImage);
    EXPECT_EQ(byName["web.webp"].pixelWidth, 30u);

    const PHAsset& dated = byName["dated.jpg"];
    // 08:30 at +02:00 is 06:30 UTC.
    EXPECT_DOUBLE_EQ(dated.creationDate->timeIntervalSince1970(), 1623738600.0);
    ASSERT_TRUE(dated.location);
    EXPECT_NEAR(dated.location->latitude, 48.5, 1e-6);
    EXPECT_NEAR(dated.location->longitude, -2.25, 1e-6);
    EXPECT_EQ(byName["turned.jpg"].pixelWidth, 40u);
    EXPECT_EQ(byName["turned.jpg"].pixelHeight, 60u);
    EXPECT_DOUBLE_EQ(byName["plain.jpg"].creationDate->timeIntervalSince1970(), 1546398245.0);
    EXPECT_FALSE(byName["plain.jpg"].location);
    const PHAsset& clip = byName["clip.mov"];
    EXPECT_EQ(clip.mediaType, PHAssetMediaTypeVideo);
    EXPECT_NEAR(clip.duration, 0.5, 0.05);
    EXPECT_EQ(clip.pixelWidth, 48u);
    EXPECT_EQ(clip.pixelHeight, 64u);
    EXPECT_DOUBLE_EQ(clip.creationDate->timeIntervalSince1970(), 1580702706.0);

    // Recents come by creation date; the filter and limit apply.
    PHFetchOptions newest;
    newest.newestFirst = true;
    newest.mediaTypes = {PHAssetMediaTypeImage};
    newest.fetchLimit = 2;
    auto recents = library->fetchAssetsWithOptions(newest);
    ASSERT_EQ(recents.count(), 2u);
    EXPECT_EQ(nameOf(recents.objectAtIndex(1)->resources[0].path), "dated.jpg");
    EXPECT_EQ(recents.objectAtIndex(2), nullptr);
}

// Movies are the files of every container the program writes, in any case of extension;
// other files beside them are not catalogued.
TEST(PhotoLibraryFacts, MoviesOfEveryContainerAreCatalogued) {
    TestHome home;
    const char* movies[] = {"clip.m4v", "phone.3gp", "older.3g2", "SHOUT.MP4"};
    for (const char* name : movies)
        makeMovie(home.path(std::string("Pictures/") + name), "-c:v libx264");
    std::ofstream(home.path("Pictures/notes.txt")) << "text";
    std::ofstream(home.path("Pictures/clip.m4v.part")) << "half a movie";
    auto library = openLibrary(home);
    ASSERT_TRUE(library);
    std::map<std::string, PHAsset> byName;
    for (const auto& a : library->fetchAssetsWithOptions({}).objects())
        byName[nameOf(a.resources[0].path)] = a;
    EXPECT_EQ(byName.size(), std::size(movies));
    for (const char* name : movies) {
        ASSERT_TRUE(byName.count(name)) << name;
        EXPECT_EQ(byName[name].mediaType, PHAssetMediaTypeVideo) << name;
        EXPECT_NEAR(byName[name].duration, 0.5, 0.05) << name;
        EXPECT_EQ(byName[name].pixelWidth, 64u) << name;
    }
}

TEST(PhotoLibraryFacts, ParsersTakeWellFormedTextOnly) {
    using photolibrary::parseExifDate;
    using photolibrary::parseISO6709;
    struct DateRow {
        const char* text;
        const char* offset;
        std::optional<double> expected;
    } dates[] = {
        {"2021:06:15 08:30:00", "+02:00", 1623738600.0},
        {"2021:06:15 08:30:00", "-01:30", 1623751200.0},
        {"2021:13:15 08:30:00", "+00:00", std::nullopt},
        {"    :  :     :  :  ", "", std::nullopt},
        {"", "", std::nullopt},
    };
    for (const auto& row : dates) {
        auto date = parseExifDate(row.text, row.offset);
        ASSERT_EQ(date.has_value(), row.expected.has_value()) << row.text;
        if (date) {
            EXPECT_DOUBLE_EQ(date->timeIntervalSince1970(), *row.expected) << row.text;
        }
    }
    struct PlaceRow {
        const char* text;
        std::optional<PHLocation> expected;
    } places[] = {
        {"+48.8577+002.2950+035.000/", PHLocation{48.8577, 2.295}},
        {"-33.8688+151.2093/", PHLocation{-33.8688, 151.2093}},
        {"+95.0+002.0/", std::nullopt},
        {"48.8+2.2/", std::nullopt},
        {"garbage", std::nullopt},
    };
    for (const auto& row : places) EXPECT_EQ(parseISO6709(row.text), row.expected) << row.text;
}
