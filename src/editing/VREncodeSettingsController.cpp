#include "editing/VREncodeSettingsController.h"

#include "editing/VRPresetEditView.h"
#include "storage/VRSettings.h"

bool VREncodeSettingsController::didFinishEditingRow(int row, const std::string& text,
                                                     bool inEdit) {
    double value = inEdit ? 0.0 : VRPresetEditView::floatValue(text);
    switch (row) {
        case kPhotoDPIRow:
            VRSettings::setPhotoDPI(value);
            return true;
        case kPhotoJPEGCompressionRow:
            VRSettings::setPhotoJPEGCompression(value);
            return true;
        case kVideoBitrateRow:
            VRSettings::setVideoBitrate(value);
            return true;
        default:
            return false;
    }
}
