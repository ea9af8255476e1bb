// `unwarp process --template KEY [--out DIR [--name BASE]] [--keep-going] [--recursive]
// [--format NAME] [--json] [--yes] [--report-errors] [adjustments] [--live PHOTO MOVIE]
// [--library DIR] [--asset ID...] [--album NAME] [--recents N] [--shard I/N] FILE|FOLDER...`:
// one batch run over the files, the folders' photos and movies and the library's assets, in
// that order (with --shard, over this process's slice of them).
// Results go to the result store or the library by the settings; with --out they are then
// shared into that folder by the export rules, replacing nothing there.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iostream>

#include "app/BatchRun.h"
#include "app/Command.h"
#include "app/ProcessAdjust.h"
#include "app/ProcessArguments.h"
#include "app/ProcessInputs.h"
#include "app/ProcessLibraryInput.h"
#include "app/ProcessReport.h"
#include "app/ProcessShard.h"
#include "app/ResultsSharing.h"
#include "assets/VRAsset.h"
#include "assets/VRURLAsset.h"
#include "core/ErrorMessages.h"
#include "editing/VRPresetViewAbstract.h"
#include "model/TypeIdentifiers.h"
#include "model/VRFormat.h"
#include "platform/FileManager.h"
#include "platform/ImageFrames.h"
#include "results/ExportManager.h"
#include "storage/VRFileStorage.h"
#include "storage/VRSettings.h"
#include "templates/TemplateManager.h"

namespace {

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

constexpr const char* kShardHelp =
    "Take only slice I of N of the inputs, I counting from 0 (as JOB_COMPLETION_INDEX of a "
    "Kubernetes Indexed Job, and SLURM_ARRAY_TASK_ID with --array=0-(N-1)); an input's slice "
    "follows from a hash of its path relative to the FOLDER given (a FILE's path as given, a "
    "library asset's path in the library), so a rerun gives it the same slice. With --name, "
    "give each slice a base name of its own";

class ProcessCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "process", "Resize photos and videos with a template, as one batch run");
        command->add_option("--template", _key, "Template key (see unwarp templates)")->required();
        command->add_option("--out", _out,
                            "Share the results into this folder by the export names (made when "
                            "missing; nothing there is replaced)");
        command->add_option("--name", _name,
                            "With --out: the results' custom base name (a, or a1 a2 ..., or a01 "
                            "... a11)");
        command->add_flag("--keep-going", _options.keepGoing,
                          "After a failed item go on with the next one (the run stops otherwise)");
        command->add_flag("--recursive", _recursive, "Take the subfolders of FOLDER inputs too");
        command->add_option("--format", _format,
                            "Photo format instead of the template's: jpeg, png, tiff, gif, heic "
                            "or webp, at the template's compression");
        command->add_flag("--json", _json, "Print one JSON object a line instead of text");
        command->add_flag("--yes", _options.proceedOverLimit,
                          "Over the size limit, take the smaller size offered without asking");
        command->add_flag("--report-errors", _options.reportErrors,
                          "Off a terminal, answer an error dialog with \"Contact us\"");
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
        command->add_option("--shard", _shard, kShardHelp);
        command->add_option("FILE", _files,
                            "Photos and videos to resize, in order; a folder gives its photos "
                            "and movies in name order");
        return command;
    }

    int run() override {
        for (auto step : {&ProcessCommand::prepare, &ProcessCommand::prepareInputs,
                          &ProcessCommand::checkMediaAgainstTemplate,
                          &ProcessCommand::prepareAdjust, &ProcessCommand::prepareOutputFolder}) {
            const int code = (this->*step)();
            if (code != app::kExitSuccess) return code;
        }
        if (!takeShard()) return app::kExitSuccess;
        TemporariesRemoval removal;
        catchInterrupt();
        _options.ask = isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
        app::BatchRunView view(std::cerr, isatty(STDERR_FILENO), _inputs.size());
        app::BatchRunHandlers handlers;
        handlers.started = [this](const app::ProcessInput& input) {
            if (input.path) noteAnimation(*input.path);
        };
        handlers.failed = [this, &view](const app::ProcessInput& input, const VRError& error) {
            view.clearLine();
            app::printFailure(input, error, _json);
        };
        auto stateFor = [this](const VRAsset& asset) {
            return app::adjustStateForAsset(_adjusted, asset, _state);
        };
        auto outcome =
            app::runBatch(_inputs, _tpl, stateFor, _options, view, handlers, gInterrupted);
        int code = deliver(outcome);
        const std::size_t done = outcome.results.size() + outcome.failures.size();
        view.summary(outcome.results.size(), outcome.failures.size(),
                     _inputs.size() > done ? _inputs.size() - done : 0, outcome.interrupted);
        TemplateManager::shared().waitForPendingWrites();
        if (outcome.interrupted) {
            std::cerr << "unwarp: cancelled\n";
            return interruptedExitCode();
        }
        if (!outcome.failures.empty()) code = app::kExitProcessingFailure;
        return code;
    }

  private:
    int prepare() {
        // Completed as the summary screen completes a template taken into a session, so that
        // a template stored with a bare method keeps its size under a quarter turn.
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
        if (_shard) {
            _shardTaken = app::parseShard(*_shard, &problem);
            if (!_shardTaken) return app::reportUsageError(problem);
        }
        _state = state;
        return app::kExitSuccess;
    }

    // Per-item adjustments from --adjust, run through the adjust session over the run's inputs.
    int prepareAdjust() {
        app::AdjustInputs inputs;
        for (const auto& input : _inputs) inputs.push_back({input.asset, input.name, input.path});
        return app::prepareAdjustStates(_adjust, inputs, *_tpl, _adjusted);
    }

    // This process's slice of the inputs, taken after the per-item adjustments have run over
    // the whole batch, so that each item gets the state an unsharded run would give it; false
    // when the slice holds nothing, which is no failure: the other slices hold the run.
    bool takeShard() {
        if (!_shardTaken) return true;
        const std::size_t all = _inputs.size();
        _inputs = app::takeShard(std::move(_inputs), *_shardTaken);
        if (_inputs.empty())
            std::cerr << "unwarp: --shard " << *_shard << ": none of the " << all
                      << " inputs falls in this shard\n";
        return !_inputs.empty();
    }

    // A missing --out folder is made, with its parents.
    int prepareOutputFolder() {
        if (!_out) {
            if (_name) return app::reportUsageError("--name needs --out");
            return app::kExitSuccess;
        }
        std::error_code error;
        _outDir = std::filesystem::absolute(*_out, error).lexically_normal().string();
        if (error) return app::reportUsageError("--out " + *_out + ": " + error.message());
        while (_outDir.size() > 1 && _outDir.back() == '/') _outDir.pop_back();
        bool isDirectory = false;
        if (FileManager::fileExistsAtPath(_outDir, &isDirectory)) {
            if (!isDirectory)
                return app::reportUsageError("--out " + *_out + ": a file, not a folder");
            return app::kExitSuccess;
        }
        platform::ErrorRef made;
        if (!FileManager::createDirectoryAtPath(_outDir, true, &made))
            return app::reportUsageError("--out " + *_out + ": " +
                                         (made ? made->localizedDescription() : "not made"));
        return app::kExitSuccess;
    }

    // The Live Photo given with --live first, then the files and folders, then the library's
    // assets. Every library asset is found before anything is processed, so that an unknown
    // identifier or album stops the run at once.
    int prepareInputs() {
        if (!_live.empty()) {
            const int code = prepareLivePhoto();
            if (code != app::kExitSuccess) return code;
        }
        std::string problem;
        const app::FolderOptions folders{_recursive, VRSettings::isLivePhotoEnabled()};
        auto files = app::expandProcessInputs(_files, folders, &problem);
        if (!files) return app::reportFailure(problem);
        _inputs.insert(_inputs.end(), files->begin(), files->end());
        auto assets = app::resolveLibraryInput(_library, &problem);
        // Not a usage slip: the library lacks what was named.
        if (!assets) return app::reportFailure(problem);
        const bool paired = VRSettings::isLivePhotoEnabled() && VRSettings::isAutoSaveEnabled();
        bool noted = false;
        for (auto& input : *assets) {
            if (input.asset->livePhoto() && !paired && !noted) {
                std::cerr << "unwarp: Live Photos are off in the settings (livePhotoEnabled, "
                             "isAutoSaveEnabled): their stills go alone\n";
                noted = true;
            }
            _inputs.push_back(std::move(input));
        }
        if (_inputs.empty()) {
            if (_library.any()) return app::reportUsageError("nothing to process in the library");
            return app::reportUsageError(_files.empty() ? "no FILE to process"
                                                        : "no photos or movies to process");
        }
        return app::kExitSuccess;
    }

    int prepareLivePhoto() {
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
        std::error_code ec;
        auto absolute = [&](const std::string& p) {
            return std::filesystem::absolute(p, ec).lexically_normal().string();
        };
        auto object = VRURLAsset::livePhotoAssetWithURL(absolute(_live[0]), absolute(_live[1]));
        _inputs.push_back({VRAsset::assetWithObject(object), _live[0], _live[0],
                           std::filesystem::path(_live[0]).lexically_normal().generic_string()});
        return app::kExitSuccess;
    }

    // A movie needs a template with a video size; a photo-only one would re-encode the movie
    // at its own size, which is not what was asked for. The Live Photo's movie goes with the
    // still's size, so it needs none.
    int checkMediaAgainstTemplate() {
        if (_tpl->sizeEntryForMediaType(VRFormatMediaTypeVideo)) return app::kExitSuccess;
        for (const auto& input : _inputs)
            if (input.asset->mediaType() == VRFormatMediaTypeVideo)
                return app::reportUsageError(input.name + ": the template " + _key +
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

    // Shares the results into --out (all at once, so that custom names are numbered over the
    // whole run) and prints a line for each; answers the share's exit code.
    int deliver(const app::BatchRunOutcome& outcome) {
        std::vector<std::string> outputs;
        int code = app::kExitSuccess;
        if (_out && !outcome.results.empty()) {
            std::vector<VRAssetRef> results;
            for (const auto& item : outcome.results) results.push_back(item.result);
            auto shared = app::results::exportIntoFolder(results, _outDir, _name);
            code = shared.code;
            outputs = std::move(shared.written);
            // The results stay where the run put them; the cause is said beside the share's words.
            if (shared.error) {
                std::cerr
                    << "unwarp: --out " << _outDir << ": "
                    << VRErrorReason(*shared.error).value_or(shared.error->localizedDescription())
                    << "\n";
            }
        }
        for (std::size_t i = 0; i < outcome.results.size(); ++i) {
            const auto& item = outcome.results[i];
            std::string output;
            if (i < outputs.size())
                output = outputs[i];
            else if (!_out)
                output = ExportManager::sourceURLForAsset(*item.result)
                             .value_or(item.result->objectIdentifier());
            else
                continue;  // not shared: the share's failure is said already
            app::printResult(_inputs[item.input].name, item, output,
                             formatName(*item.result, output), _json);
        }
        return code;
    }

    std::string formatName(const VRAsset& result, const std::string& output) const {
        std::string format = VRFormat::formatFromURL(output).name();
        // WebP is no template format, so its name does not come back from the file's type.
        if (format == "Auto" && _format && result.mediaType() == VRFormatMediaTypePhoto)
            format = _tpl->formatForMediaType(VRFormatMediaTypePhoto).name();
        return format;
    }

    std::string _key;
    std::vector<std::string> _live;
    std::optional<std::string> _out;
    std::optional<std::string> _name;
    std::optional<std::string> _format;
    bool _json = false;
    bool _recursive = false;
    bool _flipH = false;
    bool _flipV = false;
    std::optional<std::string> _rotate;
    std::optional<std::string> _shift;
    std::optional<std::string> _fill;
    std::optional<std::string> _shard;
    std::optional<app::Shard> _shardTaken;
    std::vector<std::string> _files;
    app::LibraryInput _library;
    app::BatchRunOptions _options;

    std::vector<app::ProcessInput> _inputs;
    VXTemplateRef _tpl;
    VRAdjustAssetStateRef _state;
    std::optional<std::string> _adjust;
    std::optional<VRAdjustState> _adjusted;
    std::string _outDir;
};

}  // namespace

UNWARP_REGISTER_COMMAND(ProcessCommand)
