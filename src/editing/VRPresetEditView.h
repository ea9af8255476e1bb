// The rules of the size editor's two number fields (width and height): which texts a change may
// leave, and the values they stand for. Used by the size editor and the settings lists.
#pragma once

#include <cstdint>
#include <string>

#include "model/VRSizeEntry.h"
#include "platform/Geometry.h"

enum class VRPresetEditField { width, height };

class VRPresetEditView {
  public:
    double widthValue() const { return _widthValue; }
    double heightValue() const { return _heightValue; }
    void setWidthValue(double value) { _widthValue = value; }
    void setHeightValue(double value) { _heightValue = value; }
    VRSizeEntryType inputType() const { return _inputType; }
    void setInputType(VRSizeEntryType type) { _inputType = type; }
    std::int64_t mediaType() const { return _mediaType; }
    void setMediaType(std::int64_t mediaType) { _mediaType = mediaType; }
    // The largest width and height a field may hold (the device's photo or video limit).
    CGSize maxValue() const { return _maxValue; }
    void setSizeMax(CGSize maxSize) { _maxValue = maxSize; }

    // Decides a change of `field` whose text would become `newText`. In pixels, "0" is refused
    // and sets the other field's value to 0. Otherwise the text must match "([1-9][0-9]*)?" and
    // its value may not exceed the field's maximum (when one is set); an accepted text sets
    // the field's value (the empty text is 0).
    bool shouldChangeText(VRPresetEditField field, const std::string& newText);

    // The text after replacing `length` bytes at `location` by `replacement`; the range is
    // clipped to the text.
    static std::string textAfterChange(const std::string& text, std::size_t location,
                                       std::size_t length, const std::string& replacement);
    // "([1-9][0-9]*)?": no leading zero; the empty text passes.
    static bool isValidFieldText(const std::string& text);
    // "0|([1-9][0-9]*)?": as above, and a lone zero passes (list cells, encoding settings).
    static bool isValidListCellText(const std::string& text);
    // The platform's floatValue: leading blanks skipped, the longest number read in the C
    // locale, 0 when none; a 32-bit float.
    static float floatValue(const std::string& text);

  private:
    double _widthValue = 0;
    double _heightValue = 0;
    CGSize _maxValue = CGSizeZero;
    VRSizeEntryType _inputType = VRSizeTypePixels;
    std::int64_t _mediaType = 0;
};
