// The photo DPI field of the encoding settings: keeps the last valid text, refuses the rest,
// and stores accepted values in VRSettings. Used by the encoding settings screen.
#pragma once

#include <string>

class ResolutionModel {
  public:
    // Starts from the stored DPI and its automatic switch.
    ResolutionModel();

    const std::string& value() const { return _value; }
    // Empty is accepted. Otherwise the text must match "^(0|[1-9][0-9]*)$"; a match becomes
    // the last valid text and is stored as the DPI, anything else puts the last valid text back.
    // True when the text was accepted.
    bool setValue(const std::string& text);
    bool recommended() const { return _recommended; }
    void setRecommended(bool automatic);

    static bool matchesResolution(const std::string& text);

  private:
    std::string _value;
    std::string _oldValue;
    bool _recommended = true;
};
