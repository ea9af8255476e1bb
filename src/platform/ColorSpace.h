// The colour space of a bitmap: its colour model and, when known, its ICC profile bytes.
// Decoders attach one to every image; drawing contexts and encoders read it back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

class ColorSpace {
  public:
    enum class Model { Gray, RGB, CMYK };

    ColorSpace() = default;
    ColorSpace(Model model, std::vector<std::uint8_t> iccProfile = {})
        : _model(model), _icc(std::move(iccProfile)) {}

    // Device spaces carry no profile; they are read as sRGB and its grey.
    static ColorSpace deviceRGB() { return ColorSpace(Model::RGB); }
    static ColorSpace deviceGray() { return ColorSpace(Model::Gray); }

    Model model() const { return _model; }
    // Colour components per pixel: 1, 3 or 4.
    int numberOfComponents() const;
    const std::vector<std::uint8_t>& iccProfile() const { return _icc; }
    bool isDevice() const { return _icc.empty(); }
    // CGColorSpaceSupportsOutput: a drawing context can be made in grey and RGB spaces only.
    bool supportsOutput() const { return _model != Model::CMYK; }
    // The profile's description ("Display P3"), or "" for a device space or an unreadable profile.
    std::string name() const;
    // "ColorModel" as the image properties give it: "Gray", "RGB" or "CMYK".
    std::string colorModelName() const;
    // For logs: "<RGB Display P3>" or "<RGB device>".
    std::string description() const;

    // Same model and same profile bytes.
    friend bool operator==(const ColorSpace&, const ColorSpace&) = default;

  private:
    Model _model = Model::RGB;
    std::vector<std::uint8_t> _icc;
};

}  // namespace platform
