// `unwarp camera --photo | --movie SECONDS`: a capture from the camera (the cameraDevice
// setting, or --device) made into the capture file of the assets folder, whose path it prints
// with the asset's size and, for a movie, its duration.
#include <cstdio>
#include <iostream>

#include "app/Command.h"
#include "results/VRCameraCapture.h"
#include "storage/VRSettings.h"

namespace {

class CameraCommand : public app::Command {
  public:
    CLI::App* setup(CLI::App& program) override {
        auto* camera = program.add_subcommand(
            "camera", "Take a photo or a short movie with the camera into the capture file");
        // One of the two, whatever else is given.
        auto* what = camera->add_option_group("capture", "What to take");
        what->add_flag("--photo", _photo, "Take one still, written as JPEG");
        what->add_option("--movie", _seconds, "Record a movie of SECONDS")
            ->check(CLI::Range(0.001, 3600.0));
        what->require_option(1);
        camera->add_option("--device", _device,
                           "The camera: a video device, or an FFmpeg input as FORMAT:INPUT "
                           "(default: the cameraDevice setting, else /dev/video0)");
        return camera;
    }

    int run() override {
        if (_device.empty()) _device = VRSettings::cameraDevice();
        const platform::Camera camera(_device);
        platform::ErrorRef error;
        auto asset = _photo ? VRCameraCapture::capturePhoto(camera, &error)
                            : VRCameraCapture::captureMovie(camera, _seconds, &error);
        if (!asset)
            return app::reportFailure(
                "nothing was captured: " +
                (error ? error->localizedDescription() : std::string("unknown error")));
        const auto path = VRCameraCapture::captureURLWithExtension(
            _photo ? "jpg" : platform::Camera::movieExtension());
        const CGSize size = asset->pixelSize();
        std::cout << path << "\n"
                  << "size: " << static_cast<long>(size.width) << "x"
                  << static_cast<long>(size.height) << "\n";
        if (!_photo) {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%.3f", asset->duration());
            std::cout << "duration: " << seconds << " s\n";
        }
        return app::kExitSuccess;
    }

  private:
    bool _photo = false;
    double _seconds = 0;
    std::string _device;
};

}  // namespace

UNWARP_REGISTER_COMMAND(CameraCommand)
