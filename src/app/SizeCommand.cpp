// `unwarp size --template KEY --media photo|video --source WxH [--rotated] [--json]`: what a
// template makes of one asset of that shape, by the same resolution the pipelines run.
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/Command.h"
#include "app/TemplateArguments.h"
#include "app/TemplateJSON.h"
#include "editing/VRPresetViewAbstract.h"
#include "model/VRAdjustAssetState.h"
#include "model/VRSizeResolver.h"
#include "model/VXHelperDevice.h"
#include "model/VXHelperText.h"
#include "templates/TemplateManager.h"

namespace {

using nlohmann::json;

const char* arrangementWord(VRImageArrangement arrangement) {
    switch (arrangement) {
        case VRImageArrangement::fill:
            return "clip";
        case VRImageArrangement::fit:
            return "fit";
        case VRImageArrangement::stretch:
            break;
    }
    return "stretch";
}

class SizeCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* command = program.add_subcommand(
            "size", "Show the output size a template gives one photo or video of a given size");
        command->add_option("--template", _key, "Template key (see unwarp templates)")->required();
        command->add_option("--media", _media, "photo or video")->required();
        command->add_option("--source", _source, "The asset's size, WxH in pixels")->required();
        command->add_flag("--rotated", _rotated,
                          "The asset was turned by a quarter in the adjust view");
        command
            ->add_option("--device-class", _deviceClass,
                         "Use the limits of device class 0 to 4 instead of this machine's")
            ->check(CLI::Range(0, 4));
        command->add_flag("--json", _json, "Print JSON instead of text");
        return command;
    }

    int run() override {
        std::string problem;
        auto mediaType = app::parseMediaType(_media, &problem);
        auto source = app::parseSourceSize(_source, &problem);
        if (!mediaType || !source) return app::reportUsageError(problem);
        auto& manager = TemplateManager::shared();
        auto tpl = VRPresetViewAbstract::templateWithSourceOptions(manager.templateWithKey(_key));
        if (!tpl) return app::reportFailure("no template with key " + _key);
        auto entry = tpl->sizeEntryForMediaType(*mediaType);
        if (!entry) {
            return app::reportUsageError("template " + _key + " has no " + _media + " settings");
        }

        VRResolveRequest request;
        request.mediaType = static_cast<VRFormatMediaType>(*mediaType);
        request.sizeEntry = *entry;
        request.options = tpl->optionsForMediaType(*mediaType).value_or(VRSizeOptions{});
        request.format = tpl->formatForMediaType(*mediaType);
        request.sourceSize = *source;
        const unsigned deviceClass = _deviceClass.value_or(VXHelper::deviceClass());
        request.limits = {VXHelper::maxPhotoSize(deviceClass), VXHelper::maxVideoSize(deviceClass),
                          VXHelper::minLivePhotoVideoSize(deviceClass)};
        if (_rotated) {
            auto state = std::make_shared<VRAdjustAssetState>();
            state->setOrientation(VROrientation::orientationWithFlipedX(false, false, 1));
            request.adjustState = state;
        }
        VRResolvedOutput output = VXHelper::resolveOutput(request);
        manager.waitForPendingWrites();
        return _json ? printJSON(output) : printText(output);
    }

  private:
    int printText(const VRResolvedOutput& output) const {
        if (const auto& verdict = output.limitExceeded) {
            std::cout << "exceeds the size limit: error code 5\n"
                      << "original:   " << VXHelper::stringFromSize(verdict->originalSize) << "\n"
                      << "exceeding:  " << VXHelper::stringFromSize(verdict->exceedingSize) << "\n"
                      << "correction: " << VXHelper::stringFromSize(verdict->correctingSize)
                      << "\n";
            return app::kExitSuccess;
        }
        std::cout << "output: " << VXHelper::stringFromSize(output.outputSize) << "\n"
                  << "method: " << arrangementWord(output.arrangement) << "\n"
                  << "frame:  " << NSStringFromCGRect(output.imageFrame) << "\n"
                  << "image:  " << VXHelper::stringFromSize(output.pictureSize) << "\n"
                  << "format: " << output.format.name() << "\n";
        return app::kExitSuccess;
    }

    int printJSON(const VRResolvedOutput& output) const {
        json result;
        if (const auto& verdict = output.limitExceeded) {
            result = {{"exceedsLimit", true},
                      {"errorCode", 5},
                      {"originalSize", app::sizeJSON(verdict->originalSize)},
                      {"exceedingSize", app::sizeJSON(verdict->exceedingSize)},
                      {"correctingSize", app::sizeJSON(verdict->correctingSize)}};
        } else {
            const CGRect& frame = output.imageFrame;
            result = {{"exceedsLimit", false},
                      {"outputSize", app::sizeJSON(output.outputSize)},
                      {"method", arrangementWord(output.arrangement)},
                      {"frame", app::rectJSON(frame)},
                      {"imageSize", app::sizeJSON(output.pictureSize)},
                      {"format", output.format.name()}};
        }
        std::cout << result.dump(2) << "\n";
        return app::kExitSuccess;
    }

    std::string _key, _media, _source;
    std::optional<unsigned> _deviceClass;
    bool _rotated = false, _json = false;
};

}  // namespace

UNWARP_REGISTER_COMMAND(SizeCommand)
