// The program's own folders under the documents directory: the user folder, the assets folder
// of camera captures and imports, and the application files of file assets. Used by the
// import, the camera flow and the file assets. Safe on any thread.
#pragma once

#include <string>

class VRFileStorage {
  public:
    VRFileStorage() = delete;

    // documents/user, documents/user/assets and documents/user/_vrfiles.
    struct ProjectURLs {
        std::string userURL;
        std::string assetsURL;
        std::string appfilesURL;

        // The folder of one owner of application files (a file asset, by its UUID) under
        // appfilesURL; making the value ensures the folder, marked excluded from backup.
        struct AppfileCoordinator {
            explicit AppfileCoordinator(const std::string& ownerName);
            std::string url;
        };

        friend bool operator==(const ProjectURLs&, const ProjectURLs&) = default;
    };

    // The shared value. It is made once for each documents directory: a program run has one,
    // set before anything asks, so there it is made once; tests move the home root between
    // cases, and a value frozen at the first call would point into a removed directory.
    static ProjectURLs projectURLs();

    // Creates the assets folder with its intermediates; a failure is swallowed.
    static void createAssetsFolder();
    // Removes every entry of the assets folder whose name begins with `prefix`, logging
    // "removed file " and the name for each.
    static void removeFilesWithPrefix(const std::string& prefix);
    // Removes the application files folder and all it holds.
    static void clearApplicationFiles();
};
