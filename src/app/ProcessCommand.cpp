// `unwarp process --template KEY [--out DIR] [--json] [--yes] [adjustments] [--live PHOTO MOVIE]
// FILE...`: runs each photo, movie or Live Photo through the processor in order, one in flight,
// and moves each finished file (and a Live Photo's movie) into the output folder under its
// result name. The main thread runs the main queue meanwhile.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/ProcessArguments.h"
#include "assets/VRAsset.h"
#include "assets/VRURLAsset.h"
#include "core/ErrorMessages.h"
#include "core/VRProcessor.h"
#include "model/VRFormat.h"
#include "model/VXHelperSize.h"
#include "model/VXHelperText.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "storage/VRSettings.h"
#include "templates/TemplateManager.h"

namespace {

using nlohmann::json;
using platform::FileManager;

constexpr int kExitInterrupted = 130;

std::atomic<bool> gInterrupted{false};

void onInterrupt(int) {
    gInterrupted = true;
}

// Without SA_RESTART, so that a question waiting for an answer is interrupted too.
void catchInterrupt() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

json jsonFromPlist(const platform::PlistValue& value) {
    using Type = platform::PlistValue::Type;
    switch (value.type()) {
        case Type::Boolean:
            return value.boolValue();
        case Type::Integer:
            return value.integerValue();
        case Type::Real:
            return value.doubleValue();
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
        command->add_flag("--json", _json, "Print one JSON object a line instead of text");
        command->add_flag("--yes", _yes,
                          "Over the size limit, take the smaller size offered without asking");
        command->add_flag("--flip-h", _flipH, "Mirror left to right");
        command->add_flag("--flip-v", _flipV, "Mirror top to bottom");
        command->add_option("--rotate", _rotate, "Turn clockwise by 90, 180 or 270 degrees");
        command->add_option("--shift", _shift,
                            "Move the picture by X,Y output pixels (right, down)");
        command->add_option("--fill", _fill, "Colour of the margins, #RRGGBB or #RRGGBBAA");
        command
            ->add_option("--live", _live,
                         "A Live Photo: its still, then its movie (needs the settings "
                         "livePhotoEnabled and isAutoSaveEnabled on)")
            ->expected(2);
        command->add_option("FILE", _files, "Photos and videos to resize, in order");
        return command;
    }

    int run() override {
        int code = prepare();
        if (code != app::kExitSuccess) return code;
        code = prepareLivePhoto();
        if (code != app::kExitSuccess) return code;
        catchInterrupt();
        for (std::size_t i = 0; i < _files.size() && code == app::kExitSuccess; ++i)
            code = processFile(i);
        TemplateManager::shared().waitForPendingWrites();
        return code;
    }

  private:
    int prepare() {
        _tpl = TemplateManager::shared().templateWithKey(_key);
        if (!_tpl) return app::reportUsageError("no template with key " + _key);
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
        std::error_code error;
        _outDir = std::filesystem::absolute(_out.value_or("."), error).lexically_normal().string();
        bool isDirectory = false;
        if (error || !FileManager::fileExistsAtPath(_outDir, &isDirectory) || !isDirectory)
            return app::reportUsageError("--out " + _out.value_or(".") + ": no such folder");
        return app::kExitSuccess;
    }

    Outcome runOnce(const VRAssetRef& asset, CGSize size) {
        auto outcome = std::make_shared<Outcome>();
        const bool showProgress = isatty(STDERR_FILENO);
        auto& processor = VRProcessor::mainProcessor();
        processor.processAsset(
            asset, _tpl, _state, size,
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
        auto asset = VRAsset::assetWithObject(object);
        std::cerr << "[" << index + 1 << "/" << _files.size() << "] " << file << "\n";
        CGSize size = CGSizeZero;
        for (;;) {
            Outcome outcome = runOnce(asset, size);
            if (outcome.interrupted || gInterrupted) return interrupted(outcome);
            if (outcome.error && outcome.error->code() == 5) {
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

    int interrupted(const Outcome& outcome) {
        // A file finished just before the cancel was seen is not kept.
        if (outcome.result) {
            FileManager::removeItemAtPath(outcome.result->objectIdentifier());
            if (auto paired = pairedVideoOf(*outcome.result))
                FileManager::removeItemAtPath(*paired);
        }
        std::cerr << "unwarp: cancelled\n";
        return kExitInterrupted;
    }

    int finished(const std::string& file, const VRAsset& result) {
        const std::string from = result.objectIdentifier();
        const std::string to = FileManager::stringByAppendingPathComponent(
            _outDir, FileManager::lastPathComponent(from));
        const CGSize size = result.pixelSize();
        if (isSource(to)) {
            FileManager::removeItemAtPath(from);
            return app::reportFailure(file + ": the result " + to +
                                      " would replace its source; choose another --out, or "
                                      "turn on isOriginalFilenameSuffixEnabled");
        }
        platform::ErrorRef error;
        if (to != from) {
            // A result of the same name is replaced, as the writer replaces its own.
            if (FileManager::fileExistsAtPath(to)) FileManager::removeItemAtPath(to);
            if (!FileManager::moveItemAtPath(from, to, &error)) {
                FileManager::removeItemAtPath(from);
                return app::reportFailure(file + ": " + to + ": " +
                                          (error ? error->localizedDescription() : "not moved"));
            }
        }
        const std::optional<std::string> pairedTo = movePairedVideo(result);
        const std::string format = VRFormat::formatFromURL(to).name();
        if (_json) {
            json line = {
                {"source", file},      {"output", to},          {"mediaType", result.mediaType()},
                {"width", size.width}, {"height", size.height}, {"format", format}};
            if (pairedTo) line["pairedOutput"] = *pairedTo;
            std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
        } else {
            std::cout << file << " -> " << to << "  " << VXHelper::stringFromSize(size) << " "
                      << format;
            if (pairedTo) std::cout << " + " << *pairedTo;
            std::cout << std::endl;
        }
        return app::kExitSuccess;
    }

    // Sources of this run, by file identity, so that no result overwrites one.
    bool isSource(const std::string& path) const {
        std::error_code ec;
        for (const auto& source : _files)
            if (std::filesystem::equivalent(path, source, ec)) return true;
        if (!_live.empty() && std::filesystem::equivalent(path, _live.at(1), ec)) return true;
        return false;
    }

    int failed(const std::string& file, const VRError& error,
               const std::optional<LimitOffer>& offer) {
        std::string message = offer ? VRExceedingMaxSizeMessage(offer->exceeding, offer->correction)
                                    : VRErrorMessageForCode(error.code()).message;
        const auto& info = error.userInfo();
        auto root = info.find(VRErrorUserInfoRootKey);
        if (_json) {
            json line = {{"source", file},
                         {"error",
                          {{"code", error.code()},
                           {"domain", error.domain()},
                           {"message", message},
                           {"userInfo", jsonFromPlist(platform::PlistValue(info))}}}};
            std::cout << line.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
            return app::kExitProcessingFailure;
        }
        for (char& c : message)
            if (c == '\n') c = ' ';
        if (offer) message += " (--yes takes the smaller size)";
        if (root != info.end() && root->second.string())
            message += " (" + *root->second.string() + ")";
        return app::reportFailure(file + ": " + message);
    }

    // The Live Photo given with --live goes first, as its still; the movie follows it as the
    // paired second pass when the settings let the processor pair it.
    int prepareLivePhoto() {
        if (_live.empty()) {
            if (_files.empty()) return app::reportUsageError("no FILE to process");
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

    static std::optional<std::string> pairedVideoOf(const VRAsset& result) {
        auto* url = dynamic_cast<const VRURLAsset*>(result.object().get());
        return url ? url->pairedVideoURL() : std::nullopt;
    }

    // A Live Photo's movie goes beside its still; one that cannot be moved is dropped, as a
    // failed video half is.
    std::optional<std::string> movePairedVideo(const VRAsset& result) {
        const auto from = pairedVideoOf(result);
        if (!from) return std::nullopt;
        const std::string to = FileManager::stringByAppendingPathComponent(
            _outDir, FileManager::lastPathComponent(*from));
        if (to == *from) return to;
        if (isSource(to)) {
            FileManager::removeItemAtPath(*from);
            return std::nullopt;
        }
        if (FileManager::fileExistsAtPath(to)) FileManager::removeItemAtPath(to);
        if (!FileManager::moveItemAtPath(*from, to)) {
            FileManager::removeItemAtPath(*from);
            return std::nullopt;
        }
        return to;
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
    bool _json = false;
    bool _yes = false;
    bool _flipH = false;
    bool _flipV = false;
    std::optional<std::string> _rotate;
    std::optional<std::string> _shift;
    std::optional<std::string> _fill;
    std::vector<std::string> _files;

    VXTemplateRef _tpl;
    VRAdjustAssetStateRef _state;
    std::string _outDir;
    bool _useReducedSize = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(ProcessCommand)
