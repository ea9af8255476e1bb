// `unwarp process --template KEY [--out DIR] [--format NAME] [--json] [--yes] [adjustments]
// [--live PHOTO MOVIE] [--library DIR] [--asset ID...] [--album NAME] [--recents N] FILE...`:
// runs each photo, movie or Live Photo (files first, then the library's assets) through the
// processor in order, one in flight, and moves each finished file (and a Live Photo's movie) into
// the output folder under its result name. The main thread runs the main queue meanwhile.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/ProcessAdjust.h"
#include "app/ProcessArguments.h"
#include "app/ProcessLibraryInput.h"
#include "app/ResultHandOver.h"
#include "assets/VRAsset.h"
#include "assets/VRLibraryAsset.h"
#include "assets/VRLocalAsset.h"
#include "assets/VRURLAsset.h"
#include "core/ErrorMessages.h"
#include "core/VRProcessor.h"
#include "editing/VRPresetViewAbstract.h"
#include "model/TypeIdentifiers.h"
#include "model/VRFormat.h"
#include "model/VXHelperSize.h"
#include "model/VXHelperText.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/ImageFrames.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "templates/TemplateManager.h"

namespace {

using nlohmann::json;
using platform::FileManager;

std::atomic<bool> gInterrupted{false};
std::atomic<int> gSignal{SIGINT};

void onInterrupt(int signal) {
    gSignal = signal;
    gInterrupted = true;
}

// Ctrl-C, a termination and a hang-up all cancel the run, so that its temporaries are removed
// before the process goes. Without SA_RESTART, so that a question waiting for an answer is
// interrupted too.
void catchInterrupt() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

// The shell's code for a process ended by a signal: 130 for Ctrl-C, 143 for SIGTERM, 129 for
// SIGHUP.
int interruptedExitCode() {
    return 128 + gSignal.load();
}

// This process's temporaries go when the command ends, whichever way it ends.
struct TemporariesRemoval {
    ~TemporariesRemoval() { VRFileStorage::removeOwnTemporaries(); }
};

json jsonFromPlist(const platform::PlistValue& value) {
    using Type = platform::PlistValue::Type;
    switch (value.type()) {
        case Type::Boolean:
            return value.boolValue();
        case Type::Integer:
            return value.integerValue();
        case Type::Real: {
            // Sizes are whole pixels: printed as integers, as the results' sizes are.
            const double number = value.doubleValue();
            if (std::isfinite(number) && std::trunc(number) == number && std::fabs(number) < 1e15)
                return static_cast<std::int64_t>(number);
            return number;
        }
        case Type::String:
            return *value.string();
        case Type::Array: {
            json array = json::array();
            for (const auto& v : *value.array()) array.push_back(jsonFromPlist(v));
            return array;
        }
        case Type::Dictionary: {
            json object = json::object();
            for (const auto& [k, v] : *value.dictionary()) object[k] = jsonFromPlist(v);
            return object;
        }
        default:
            return value.debugDescription();
    }
}

// One pass of the processor as the main queue sees it.
struct Outcome {
    bool finished = false;
    bool interrupted = false;
    VRAssetRef result;
    VRErrorRef error;
};

struct LimitOffer {
    CGSize exceeding;
    CGSize correction;
};

std::optional<LimitOffer> limitOffer(const VRError& error) {
    const auto& info = error.userInfo();
    auto corrections = info.find(VRErrorUserInfoCorrectingSizesKey);
    auto exceeding = info.find(VRErrorUserInfoExceedingSizeKey);
    if (corrections == info.end() || !corrections->second.array() ||
        corrections->second.array()->empty() || !corrections->second.array()->front().array())
        return std::nullopt;
    LimitOffer offer;
    offer.correction = VXHelper::sizeWithSizeArray(*corrections->second.array()->front().array());
    if (exceeding != info.end() && exceeding->second.array())
        offer.exceeding = VXHelper::sizeWithSizeArray(*exceeding->second.array());
    return offer;
}

bool askToProceed(const LimitOffer& offer) {
    std::cerr << VRExceedingMaxSizeTitle << "\n"
              << VRExceedingMaxSizeMessage(offer.exceeding, offer.correction) << " [y/N] "
              << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer) || gInterrupted) {
        std::cin.clear();
        std::cerr << "\n";
        return false;
    }
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

class ProcessCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command =
            program.add_subcommand("process", "Resize photos and videos with a template");
        command->add_option("--template", _key, "Template key (see unwarp templates)")->required();
        command->add_option("--out", _out, "Folder for the results (default: the current one)");
        command->add_option("--format", _format,
                            "Photo format instead of the template's: jpeg, png, tiff, gif, heic "
                            "or webp, at the template's compression");
        command->add_flag("--json", _json, "Print one JSON object a line instead of text");
        command->add_flag("--yes", _yes,
                          "Over the size limit, take the smaller size offered without asking");
        command->add_flag("--flip-h", _flipH, "Mirror left to right");
        command->add_flag("--flip-v", _flipV, "Mirror top to bottom");
        command->add_option("--rotate", _rotate, "Turn clockwise by 90, 180 or 270 degrees");
        command->add_option("--shift", _shift,
                            "Move the picture by X,Y output pixels (right, down)");
        command->add_option("--fill", _fill, "Colour of the margins, #RRGGBB or #RRGGBBAA");
        command->add_option("--adjust", _adjust, app::kAdjustOptionHelp);
        command
            ->add_option("--live", _live,
                         "A Live Photo: its still, then its movie (needs the settings "
                         "livePhotoEnabled and isAutoSaveEnabled on)")
            ->expected(2);
        command->add_option("--library", _library.libraryPath,
                            "The photo library's folder (default: the pictures folder)");
        command->add_option("--asset", _library.identifiers,
                            "Library assets by identifier (see unwarp library list)");
        command->add_option("--album", _library.album, "Every asset of this library album");
        command->add_option("--recents", _library.recents, "The N newest assets of the library");
        command->add_option("FILE", _files, "Photos and videos to resize, in order");
        return command;
    }

    int run() override {
        int code = prepare();
        if (code != app::kExitSuccess) return code;
        code = prepareLibraryAssets();
        if (code != app::kExitSuccess) return code;
        code = prepareLivePhoto();
        if (code != app::kExitSuccess) return code;
        code = checkMediaAgainstTemplate();
        if (code != app::kExitSuccess) return code;
        code = app::prepareAdjustStates(_adjust, _files, _libraryAssets, *_tpl, _adjusted);
        if (code != app::kExitSuccess) return code;
        code = prepareOutputFolder();
        if (code != app::kExitSuccess) return code;
        TemporariesRemoval removal;
        catchInterrupt();
        for (std::size_t i = 0; i < _files.size() && code == app::kExitSuccess; ++i)
            code = processFile(i);
        for (std::size_t i = 0; i < _libraryAssets.size() && code == app::kExitSuccess; ++i)
            code = processInput(_files.size() + i, _libraryAssets[i],
                                _libraryAssets[i]->objectIdentifier());
        TemplateManager::shared().waitForPendingWrites();
        return code;
    }

  private:
    int prepare() {
        _tpl = VRPresetViewAbstract::templateWithSourceOptions(
            TemplateManager::shared().templateWithKey(_key));
        if (!_tpl) return app::reportUsageError("no template with key " + _key);
        if (_format) {
            std::string problem;
            const VRFormat current = _tpl->formatForMediaType(VRFormatMediaTypePhoto);
            auto format = app::parsePhotoFormat(*_format, current.compression(), &problem);
            if (!format) return app::reportUsageError(problem);
            // This run's own copy: the stored template keeps its format.
            _tpl = _tpl->copy();
            _tpl->setFormat(*format, VRFormatMediaTypePhoto);
        }
        auto state = std::make_shared<VRAdjustAssetState>();
        std::string problem;
        std::int64_t turns = 0;
        if (_rotate) {
            auto parsed = app::parseQuarterTurns(*_rotate, &problem);
            if (!parsed) return app::reportUsageError(problem);
            turns = *parsed;
        }
        if (_flipH || _flipV || turns != 0)
            state->setOrientation(VROrientation::orientationWithFlipedX(_flipH, _flipV, turns));
        if (_shift) {
            auto shift = app::parseShift(*_shift, &problem);
            if (!shift) return app::reportUsageError(problem);
            // Given in the output's directions; the state keeps it in the item's own frame.
            state->setDisplacement(displacementFromScreenDisplacement(
                *shift, state->orientation().value_or(VROrientation())));
        }
        if (_fill) {
            auto color = app::parseFillColor(*_fill, &problem);
            if (!color) return app::reportUsageError(problem);
            state->setFillColor(*color);
        }
        _state = state;
        return app::kExitSuccess;
    }

    // A missing --out folder is made, with its parents.
    int prepareOutputFolder() {
        std::error_code error;
        _outDir = std::filesystem::absolute(_out.value_or("."), error).lexically_normal().string();
        if (error)
            return app::reportUsageError("--out " + _out.value_or(".") + ": " + error.message());
        while (_outDir.size() > 1 && _outDir.back() == '/') _outDir.pop_back();
        bool isDirectory = false;
        if (FileManager::fileExistsAtPath(_outDir, &isDirectory)) {
            if (!isDirectory)
                return app::reportUsageError("--out " + *_out + ": a file, not a folder");
            return app::kExitSuccess;
        }
        platform::ErrorRef made;
        if (!FileManager::createDirectoryAtPath(_outDir, true, &made))
            return app::reportUsageError("--out " + _out.value_or(".") + ": " +
                                         (made ? made->localizedDescription() : "not made"));
        return app::kExitSuccess;
    }

    // A movie needs a template with a video size; a photo-only one would re-encode the movie
    // at its own size, which is not what was asked for. The Live Photo's movie goes with the
    // still's size, so it needs none.
    int checkMediaAgainstTemplate() const {
        if (_tpl->sizeEntryForMediaType(VRFormatMediaTypeVideo)) return app::kExitSuccess;
        std::vector<std::string> videos;
        for (const auto& file : _files)
            if (VRURLAsset::mediaTypeForPath(file) == VRFormatMediaTypeVideo)
                videos.push_back(file);
        for (const auto& asset : _libraryAssets)
            if (asset->mediaType() == VRFormatMediaTypeVideo)
                videos.push_back(asset->objectIdentifier());
        if (!videos.empty())
            return app::reportUsageError(videos.front() + ": the template " + _key +
                                         " has no video size (it is for photos only)");
        return app::kExitSuccess;
    }

    // Only the first frame of an animated GIF or WebP is used; the result is still made.
    void noteAnimation(const std::string& file) const {
        const std::string type =
            TypeIdentifiers::preferredIdentifierForExtension(FileManager::pathExtension(file));
        if (type != kUTTypeGIF && type != kUTTypeWebP) return;
        auto bytes = FileManager::contentsAtPath(file, nullptr, 256u << 20);
        if (bytes && platform::imageFrameCount(*bytes) > 1)
            std::cerr << "unwarp: " << file << " is animated: only its first frame is used\n";
    }

    Outcome runOnce(const VRAssetRef& asset, CGSize size) {
        auto outcome = std::make_shared<Outcome>();
        const bool showProgress = isatty(STDERR_FILENO);
        auto& processor = VRProcessor::mainProcessor();
        processor.processAsset(
            asset, _tpl, app::adjustStateForAsset(_adjusted, *asset, _state), size,
            [showProgress](double progress) {
                if (showProgress) std::cerr << progressBar(progress) << std::flush;
            },
            [outcome](VRAssetRef result, VRErrorRef error) {
                outcome->finished = true;
                outcome->result = std::move(result);
                outcome->error = std::move(error);
            });
        platform::MainRunLoop::runUntil([&] { return outcome->finished || gInterrupted; });
        if (showProgress) std::cerr << "\r" << std::string(kProgressBarWidth + 10, ' ') << "\r";
        if (!outcome->finished) {
            processor.cancelProcessingAssets();
            platform::MainRunLoop::runUntil([&] { return outcome->finished; });
            outcome->interrupted = true;
        }
        return *outcome;
    }

    int processFile(std::size_t index) {
        const std::string& file = _files[index];
        std::error_code ec;
        const std::string path = std::filesystem::absolute(file, ec).lexically_normal().string();
        std::shared_ptr<VRURLAsset> object = VRURLAsset::urlAssetWithURL(path);
        if (!_live.empty() && index == 0) {
            object = VRURLAsset::livePhotoAssetWithURL(
                path, std::filesystem::absolute(_live.at(1), ec).lexically_normal().string());
        }
        return processInput(index, VRAsset::assetWithObject(object), file);
    }

    // One asset, `file` naming it in what is printed (a path, or a library identifier).
    int processInput(std::size_t index, const VRAssetRef& asset, const std::string& file) {
        std::cerr << "[" << index + 1 << "/" << _files.size() + _libraryAssets.size() << "] "
                  << file << "\n";
        if (index < _files.size()) noteAnimation(file);
        CGSize size = CGSizeZero;
        for (;;) {
            Outcome outcome = runOnce(asset, size);
            if (outcome.interrupted || gInterrupted) return interrupted(outcome);
            if (outcome.error && outcome.error->hasCode(VRErrorCode::sizeLimitExceeded)) {
                auto offer = limitOffer(*outcome.error);
                if (offer && takeCorrection(*offer)) {
                    size = offer->correction;
                    continue;
                }
                if (gInterrupted) return interrupted(outcome);
                return failed(file, *outcome.error, offer);
            }
            if (outcome.error) return failed(file, *outcome.error, std::nullopt);
            if (!outcome.result) return interrupted(outcome);
            return finished(file, *outcome.result);
        }
    }

    // --yes, the setting switched off, or an earlier yes in this run take the correction;
    // on a terminal the user is asked.
    bool takeCorrection(const LimitOffer& offer) {
        if (_yes || _useReducedSize || !VRSettings::isNotifyExceedingMaxSizeEnabled()) return true;
        if (!isatty(STDIN_FILENO) || !askToProceed(offer)) return false;
        _useReducedSize = true;
        return true;
    }

    // A result finished just before the cancel was seen stays where it was stored.
    int interrupted(const Outcome& /*outcome*/) {
        std::cerr << "unwarp: cancelled\n";
        return interruptedExitCode();
    }

    int finished(const std::string& file, const VRAsset& result) {
        // The result stays in the result store or the library; --out gets its files.
        const auto [from, paired] = filesOf(result);
        const CGSize size = result.pixelSize();
        platform::ErrorRef error;
        const auto handed = app::handOverCopyOfResult(from, paired, _outDir, &error);
        if (!handed) {
            // A full disk in --out has the words of a full disk during the encode.
            platform::PlistDictionary info;
            info[VRErrorUserInfoReasonKey] =
                "The result could not be moved into " + _outDir + ": " +
                (error ? error->localizedDescription() : std::string("unknown"));
            auto failure = VRError::errorWithCode(error && VRErrorIsOutOfSpace(*error)
                                                      ? VRErrorCode::diskFull
                                                      : VRErrorCode::saveFailed,
                                                  std::move(info));
            return failed(file, *failure, std::nullopt);
        }
        const std::string& to = handed->output;
        std::string format = VRFormat::formatFromURL(to).name();
        // WebP is no template format, so its name does not come back from the file's type.
        if (format == "Auto" && _format && result.mediaType() == VRFormatMediaTypePhoto)
            format = _tpl->formatForMediaType(VRFormatMediaTypePhoto).name();
        const auto width = std::llround(size.width);
        const auto height = std::llround(size.height);
        if (_json) {
            json line = {{"source", file}, {"output", to},     {"mediaType", result.mediaType()},
                         {"width", width}, {"height", height}, {"format", format}};
            if (handed->pairedOutput) line["pairedOutput"] = *handed->pairedOutput;
            std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
        } else {
            std::cout << file << " -> " << to << "  " << VXHelper::stringFromSize(size) << " "
                      << format;
            if (handed->pairedOutput) std::cout << " + " << *handed->pairedOutput;
            std::cout << std::endl;
        }
        return app::kExitSuccess;
    }

    int failed(const std::string& file, const VRError& error,
               const std::optional<LimitOffer>& offer) {
        std::string message = offer ? VRExceedingMaxSizeMessage(offer->exceeding, offer->correction)
                                    : VRErrorMessageForCode(error.code()).message;
        const auto& info = error.userInfo();
        auto root = info.find(VRErrorUserInfoRootKey);
        const std::optional<std::string> reason = offer ? std::nullopt : reasonOf(file, error);
        if (_json) {
            json userInfo = jsonFromPlist(platform::PlistValue(info));
            if (reason) userInfo[VRErrorUserInfoReasonKey] = *reason;
            json line = {{"source", file},
                         {"error",
                          {{"code", error.code()},
                           {"domain", error.domain()},
                           {"message", message},
                           {"userInfo", userInfo}}}};
            std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
            return app::kExitProcessingFailure;
        }
        for (char& c : message)
            if (c == '\n') c = ' ';
        if (offer) message += " (--yes takes the smaller size)";
        if (root != info.end() && root->second.string())
            message += " (" + *root->second.string() + ")";
        // The cause goes on a line of its own under the words of the code.
        if (reason) message += "\n  " + *reason;
        return app::reportFailure(file + ": " + message);
    }

    // The source's own problem first (missing, unreadable, a folder, not a picture), since
    // the code's words may blame the saving; then what the error itself names.
    std::optional<std::string> reasonOf(const std::string& file, const VRError& error) const {
        if (const auto* set = userInfoString(error, VRErrorUserInfoReasonKey)) return *set;
        std::error_code ec;
        std::string path = std::filesystem::absolute(file, ec).lexically_normal().string();
        // A library asset is named by its identifier: its own file is the one to look at.
        for (const auto& asset : _libraryAssets) {
            auto* library = dynamic_cast<const VRLibraryAsset*>(asset->object().get());
            if (library && library->localIdentifier() == file)
                path = library->primaryPath().value_or(path);
        }
        const bool isPhoto = VRURLAsset::mediaTypeForPath(path) != VRFormatMediaTypeVideo;
        if (auto problem = VRSourceProblem(path, isPhoto)) return problem;
        return VRErrorReason(error);
    }

    static const std::string* userInfoString(const VRError& error, const char* key) {
        auto it = error.userInfo().find(key);
        return it == error.userInfo().end() ? nullptr : it->second.string();
    }

    // The Live Photo given with --live goes first, as its still; the movie follows it as the
    // paired second pass when the settings let the processor pair it.
    int prepareLivePhoto() {
        if (_live.empty()) {
            if (_files.empty() && _libraryAssets.empty())
                return app::reportUsageError(_library.any() ? "nothing to process in the library"
                                                            : "no FILE to process");
            return app::kExitSuccess;
        }
        for (const auto& path : _live) {
            if (!FileManager::fileExistsAtPath(path))
                return app::reportUsageError("--live " + path + ": no such file");
        }
        if (VRURLAsset::mediaTypeForPath(_live.at(0)) != VRFormatMediaTypePhoto ||
            VRURLAsset::mediaTypeForPath(_live.at(1)) != VRFormatMediaTypeVideo)
            return app::reportUsageError("--live takes a photo, then a movie");
        if (!VRSettings::isLivePhotoEnabled() || !VRSettings::isAutoSaveEnabled()) {
            std::cerr << "unwarp: Live Photos are off in the settings (livePhotoEnabled, "
                         "isAutoSaveEnabled): the still goes alone\n";
        }
        _files.insert(_files.begin(), _live.at(0));
        return app::kExitSuccess;
    }

    // Every library asset is found before anything is processed, so that an unknown
    // identifier or album stops the run at once.
    int prepareLibraryAssets() {
        std::string problem;
        auto assets = app::resolveLibraryInput(_library, &problem);
        // Not a usage slip: the library lacks what was named.
        if (!assets) return app::reportFailure(problem);
        _libraryAssets = std::move(*assets);
        const bool paired = VRSettings::isLivePhotoEnabled() && VRSettings::isAutoSaveEnabled();
        for (const auto& asset : _libraryAssets)
            if (asset->livePhoto() && !paired) {
                std::cerr << "unwarp: Live Photos are off in the settings (livePhotoEnabled, "
                             "isAutoSaveEnabled): their stills go alone\n";
                break;
            }
        return app::kExitSuccess;
    }

    // The file of a result and a Live Photo's movie: a stored result's, or a library item's.
    static std::pair<std::string, std::optional<std::string>> filesOf(const VRAsset& result) {
        const auto* object = result.object().get();
        if (auto* local = dynamic_cast<const VRLocalAsset*>(object))
            return {local->url(), local->pairedVideoURL()};
        if (auto* item = dynamic_cast<const VRLibraryAsset*>(object))
            return {item->primaryPath().value_or(""),
                    item->livePhoto() ? item->moviePath() : std::nullopt};
        auto* url = dynamic_cast<const VRURLAsset*>(object);
        return {url ? url->url() : "", url ? url->pairedVideoURL() : std::nullopt};
    }

    static constexpr int kProgressBarWidth = 30;
    static std::string progressBar(double fraction) {
        const double f = std::clamp(fraction, 0.0, 1.0);
        const int filled = static_cast<int>(f * kProgressBarWidth);
        return "\r  [" + std::string(filled, '#') + std::string(kProgressBarWidth - filled, ' ') +
               "] " + std::to_string(static_cast<int>(f * 100)) + "%";
    }

    std::string _key;
    std::vector<std::string> _live;
    std::optional<std::string> _out;
    std::optional<std::string> _format;
    bool _json = false;
    bool _yes = false;
    bool _flipH = false;
    bool _flipV = false;
    std::optional<std::string> _rotate;
    std::optional<std::string> _shift;
    std::optional<std::string> _fill;
    std::optional<std::string> _adjust;
    std::optional<VRAdjustState> _adjusted;
    std::vector<std::string> _files;
    app::LibraryInput _library;
    std::vector<VRAssetRef> _libraryAssets;

    VXTemplateRef _tpl;
    VRAdjustAssetStateRef _state;
    std::string _outDir;
    bool _useReducedSize = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(ProcessCommand)
