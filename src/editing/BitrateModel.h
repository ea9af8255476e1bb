// The video bit-rate field of the encoding settings: keeps the last valid text, refuses the
// rest, and stores accepted values in VRSettings. Used by the encoding settings screen and the
// command's settings tool.
#pragma once

#include <string>

class BitrateModel {
  public:
    // Starts from the stored bit rate and its automatic switch.
    BitrateModel();

    const std::string& value() const { return _value; }
    // The text as typed. Empty is accepted. Otherwise it must match
    // "^(0?|[1-9][0-9]*)([\.,][0-9]{0,2})?$" (at most two decimals, a comma counts as a point);
    // a match becomes the last valid text and is stored as megabits per second, anything else
    // puts the last valid text back. True when the text was accepted.
    bool setValue(const std::string& text);
    bool recommended() const { return _recommended; }
    void setRecommended(bool automatic);

    static bool matchesBitrate(const std::string& text);
    // The accepted text as a number: "," read as ".", C locale; 0 for a text with no digits.
    static double parseBitrate(const std::string& text);

  private:
    std::string _value;
    std::string _oldValue;
    bool _recommended = true;
};
