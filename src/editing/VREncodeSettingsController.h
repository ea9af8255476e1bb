// The older encoding settings list: the rows whose edited text is stored on finishing an edit.
// Used by the encoding settings screen.
#pragma once

#include <string>

class VREncodeSettingsController {
  public:
    static constexpr int kPhotoDPIRow = 2;
    static constexpr int kPhotoJPEGCompressionRow = 3;
    static constexpr int kVideoBitrateRow = 4;

    // Stores the text's floatValue by row: 2 the photo DPI, 3 the JPEG quality, 4 the video
    // bit rate; a row still in edit counts as empty (0). Other rows store nothing; false then.
    static bool didFinishEditingRow(int row, const std::string& text, bool inEdit);
};
