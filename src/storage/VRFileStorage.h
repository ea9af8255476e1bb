// The program's own folders under the documents directory: the user folder, the assets folder
// of camera captures and imports, the application files of file assets, and the temporary
// files of each running process. Used by the import, the camera flow, the file assets, the
// photo and video stages and the clean-ups at start. Safe on any thread.
#pragma once

#include <string>
#include <vector>

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
    // removeCameraAssets: the camera capture ("camera" and its extension) in the assets folder.
    static void removeCameraAssets();
    // removeTemporaryImportAssets: the import's copies (assets/import) with their folder.
    static void removeTemporaryImportAssets();

    // Temporary files. Several processes may share one home, so each process that makes
    // temporaries owns them: it holds a lock (tmp/_vrowners/<tag>.lock) for as long as it
    // runs, and its temporaries lie in folders named "_vrowner-<tag>" inside the program's
    // places, where they keep their readable names. A start removes the folders whose owner
    // has ended (even by kill -9) and never those of a process that still runs.

    // documents/_vrtempvideodir and documents/_vrtempimagedir (not created here).
    static std::string temporaryVideoDirectory();
    static std::string temporaryImageDirectory();
    // The places that may hold owner folders: documents, the two folders above, and the
    // temporary directory.
    static std::vector<std::string> temporaryPlaces();

    // "<pid>-<random>", unique to this process; the first call takes the owner lock.
    static std::string temporaryOwnerTag();
    // <place>/_vrowner-<tag>, created and excluded from backup at first need. The place itself
    // when the folder can't be made, so that the write that follows fails with its own cause.
    static std::string ownTemporaryFolder(const std::string& place);
    // Removes every folder of this process's temporaries and gives up the owner lock; a later
    // temporary makes a new owner. Called when a command ends, whichever way.
    static void removeOwnTemporaries();
    // True for "_vrowner-<tag>" whose owner still runs (this process included).
    static bool isTemporaryOfRunningProcess(const std::string& name);
    // True for any name of the "_vrowner-<tag>" form.
    static bool isOwnerFolderName(const std::string& name);
    // Removes the owner folders of ended processes in every place, then their locks. Returns
    // the paths removed.
    static std::vector<std::string> removeTemporariesOfEndedProcesses();
};
