// `unwarp results list|show|clear|share|save`: the result store as the results screen shows it,
// for people and (with --json, one object a line) for scripts. Results are numbered from 1,
// oldest first, as `list` prints them.
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/LibraryAssets.h"
#include "app/ResultsSharing.h"
#include "assets/VRLocalAsset.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/UUID.h"
#include "results/ResultManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VXHelperFiles.h"

namespace {

using nlohmann::json;
using platform::FileManager;

const char* kindWord(ResultType type) {
    return type == ResultType::photoAsset ? "library" : "file";
}

const char* mediaWord(VRFormatMediaType type) {
    return type == VRFormatMediaTypeVideo ? "video" : type == VRFormatMediaTypePhoto ? "photo" : "";
}

// The facts of one result; `asset` is null for a result that can't be read.
json resultJSON(std::size_t number, const VRResult& record, const VRAssetRef& asset) {
    json j{{"number", number},
           {"identifier", record.identifier},
           {"kind", kindWord(record.resultType)},
           {"created", app::library::isoDate(record.creationDate)},
           {"available", asset != nullptr}};
    if (!asset) return j;
    j["name"] = asset->originalFilename();
    j["media"] = mediaWord(asset->mediaType());
    if (auto* local = dynamic_cast<const VRLocalAsset*>(asset->object().get())) {
        j["file"] = local->url();
        if (FileManager::fileExistsAtPath(local->thumbnailURL()))
            j["thumbnail"] = local->thumbnailURL();
    } else {
        j["libraryIdentifier"] = asset->objectIdentifier();
    }
    return j;
}

class ResultsCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* results = program.add_subcommand(
            "results", "The stored results: list, show, clear, share into a folder, save");
        results->require_subcommand(1);
        results->fallthrough();
        results->add_flag("--json", _json, "One JSON object a line");
        results->add_subcommand("list", "The results, oldest first, numbered from 1")
            ->callback([this] { _action = "list"; });
        auto* show = results->add_subcommand("show", "One result's facts")->callback([this] {
            _action = "show";
        });
        show->add_option("N", _numbers, "The result's number, as `list` prints it")
            ->required()
            ->expected(1);
        auto* clear = results->add_subcommand("clear", "Remove results (a library item stays)")
                          ->callback([this] { _action = "clear"; });
        clear->add_option("N", _numbers, "Numbers of the results")->required();
        auto* share =
            results->add_subcommand("share", "Put results into a folder under the sharing names");
        share->add_option("N", _numbers, "Numbers of the results")->required();
        auto* to = share->add_option("--to", _folder,
                                     "The folder; a taken name moves on, nothing is replaced");
        auto* mail =
            share->add_flag("--mail", _mail, "Attach the files to a new mail (xdg-email) instead");
        to->excludes(mail);
        share->callback([this, to, mail] {
            _action = "share";
            if (to->count() == 0 && mail->count() == 0)
                throw CLI::RequiredError("--to DIR or --mail");
        });
        share->add_option("--name", _baseName,
                          "Name the files BASE, BASE1, BASE2 ... (a % in BASE stands for the "
                          "number); default: the original names");
        auto* save = results->add_subcommand("save", "Save results into the program's albums")
                         ->callback([this] { _action = "save"; });
        save->add_option("N", _numbers, "Numbers of the results")->required();
        // A tool for tests and benchmarks: stores copies of files as local results, or with
        // --photo, library identifiers as photo results.
        auto* add =
            results->add_subcommand("add", "")->group("")->callback([this] { _action = "add"; });
        add->add_option("FILE", _files)->required();
        add->add_flag("--photo", _photo);
        return results;
    }

    int run() override {
        ResultManager& store = ResultManager::shared();
        int code = 0;
        if (_action == "list")
            code = list(store);
        else if (_action == "add")
            code = add(store);
        else if (auto assets = selected(store); !assets)
            code = app::kExitUsageError;
        else if (_action == "show")
            code = show(store);
        else if (_action == "clear")
            code = clear(store);
        else if (_action == "share")
            code = app::results::shareIntoFolder(
                *assets, _mail ? std::nullopt : std::optional<std::string>(_folder), _baseName,
                _json);
        else
            code = app::results::saveToAlbums(*assets, _json);
        store.waitUntilStored();
        return code;
    }

  private:
    // The indexes of the numbers given, or nothing (with the usage error told) when one is out
    // of range.
    std::optional<std::vector<std::size_t>> indexes(ResultManager& store) {
        const std::size_t count = store.numberOfAssets();
        std::vector<std::size_t> found;
        for (auto n : _numbers) {
            if (n < 1 || n > count) {
                app::reportUsageError("no result " + std::to_string(n) + " (there are " +
                                      std::to_string(count) + ")");
                return std::nullopt;
            }
            found.push_back(n - 1);
        }
        return found;
    }

    // The assets of the numbers given; nothing when a number is out of range or, for sharing,
    // a result can't be read.
    std::optional<std::vector<VRAssetRef>> selected(ResultManager& store) {
        auto chosen = indexes(store);
        if (!chosen) return std::nullopt;
        std::vector<VRAssetRef> assets;
        if (_action != "share" && _action != "save") return assets;
        for (auto index : *chosen) {
            auto asset = store.assetAt(static_cast<std::int64_t>(index));
            if (!asset) {
                app::reportUsageError("result " + std::to_string(index + 1) +
                                      " can't be read (its file or library item is gone)");
                return std::nullopt;
            }
            assets.push_back(asset);
        }
        return assets;
    }

    int list(ResultManager& store) {
        const auto records = store.results();
        for (std::size_t i = 0; i < records.size(); ++i) {
            json j = resultJSON(i + 1, records[i], store.assetAt(static_cast<std::int64_t>(i)));
            if (_json) {
                std::cout << j.dump() << "\n";
                continue;
            }
            std::cout << i + 1 << "  " << j["created"].get<std::string>() << "  "
                      << j["kind"].get<std::string>() << "  "
                      << (j["available"].get<bool>() ? j["name"].get<std::string>()
                                                     : std::string("(unavailable)"))
                      << "\n";
        }
        return 0;
    }

    int show(ResultManager& store) {
        const std::size_t index = _numbers.at(0) - 1;
        const auto record = store.results().at(index);
        auto asset = store.assetAt(static_cast<std::int64_t>(index));
        json j = resultJSON(index + 1, record, asset);
        if (asset) {
            j["width"] = asset->pixelSize().width;
            j["height"] = asset->pixelSize().height;
            if (asset->mediaType() == VRFormatMediaTypeVideo) j["duration"] = asset->duration();
        }
        if (_json) {
            std::cout << j.dump() << "\n";
        } else {
            for (const auto& [key, value] : j.items())
                std::cout << key << ": "
                          << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
        }
        return asset ? 0 : 1;
    }

    int clear(ResultManager& store) {
        std::set<std::size_t> chosen;
        for (auto n : _numbers) chosen.insert(n - 1);
        const auto removed = store.removeAssetsAt(chosen);
        store.waitUntilStored();
        if (_json)
            std::cout << json{{"removed", removed.size()}}.dump() << "\n";
        else
            std::cout << "Removed " << removed.size() << " result"
                      << (removed.size() == 1 ? "" : "s") << "\n";
        return 0;
    }

    int add(ResultManager& store) {
        int failures = 0;
        std::size_t pending = _files.size();
        for (const auto& file : _files) {
            auto answer = [&, file](bool success, std::size_t index) {
                --pending;
                if (!success) {
                    ++failures;
                    std::cerr << "unwarp: " << file << " was not stored\n";
                } else if (_json) {
                    std::cout << json{{"number", index + 1}, {"source", file}}.dump() << "\n";
                }
            };
            if (_photo) {
                store.addPhotoAssetResultWith(file, answer);
                continue;
            }
            // The store moves what it is given, so it gets a copy of its own.
            const std::string copy = FileManager::stringByAppendingPathComponent(
                FileManager::stringByAppendingPathComponent(
                    VRFileStorage::ownTemporaryFolder(VXHelper::temporaryDirectory()),
                    platform::UUIDString()),
                FileManager::lastPathComponent(file));
            const std::string copyFolder = FileManager::stringByDeletingLastPathComponent(copy);
            if (!FileManager::createDirectoryAtPath(copyFolder, true) ||
                !FileManager::copyItemAtPath(file, copy)) {
                FileManager::removeItemAtPath(copyFolder);
                --pending;
                ++failures;
                std::cerr << "unwarp: " << file << " can't be read\n";
                continue;
            }
            store.addLocalAssetResultWith(copy, [answer, copy](bool success, std::size_t index) {
                FileManager::removeItemAtPath(FileManager::stringByDeletingLastPathComponent(copy));
                answer(success, index);
            });
        }
        platform::MainRunLoop::runUntil([&] { return pending == 0; });
        return failures ? app::kExitProcessingFailure : 0;
    }

    bool _json = false;
    bool _photo = false;
    bool _mail = false;
    std::string _action;
    std::vector<std::size_t> _numbers;
    std::string _folder;
    std::optional<std::string> _baseName;
    std::vector<std::string> _files;
};

}  // namespace

UNWARP_REGISTER_COMMAND(ResultsCommand)
