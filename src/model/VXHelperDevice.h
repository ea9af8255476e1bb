// Facts about the machine and the program that the size limits and the messages rest on:
// the machine name, its device class, the photo and video limits of that class and the
// program's name and version. Used by the photo and video pipelines, the editors and `info`.
#pragma once

#include <string>

#include "platform/Geometry.h"

namespace VXHelper {

// The machine name from uname, read once ("x86_64" on a PC, "iPhone5,2" on a phone).
const std::string& deviceMachineName();

// The class, 0 to 4, of a machine name by the first matching pattern:
//   0  ^iPhone[1-4],  ^iPad[1-2],  ^iPod[1-5],   (logs "SYS: using limited device
//   functionality!!!") 1  ^iPhone5,      ^iPad3,      ^iPod6, 2  ^iPhone[6-7],  ^iPad4, ^iPod7, 3
//   ^iPhone[8-9],  ^iPad[5-6],  ^iPod, 4  anything else (every machine without a device model).
unsigned deviceClassForMachineName(const std::string& machineName);
// The class of this machine, computed once and cached.
unsigned deviceClass();

// Limits in pixels for a device class; the forms without an argument use deviceClass().
//                    class 0      class 1      class 2, 3   class 4
//   maxPhotoSize     4096x4096    8192x8192    8192x8192    8192x8192
//   maxVideoSize     1920x1080    1920x1080    3840x2160    4096x2160
//   minLivePhoto...  960x540      960x540      1280x720     1280x720
CGSize maxPhotoSize(unsigned deviceClass);
CGSize maxVideoSize(unsigned deviceClass);
CGSize minLivePhotoVideoSize(unsigned deviceClass);
CGSize maxPhotoSize();
CGSize maxVideoSize();
CGSize minLivePhotoVideoSize();

// The side of the square thumbnails of the media picker's grid, in pixels: with W the smaller
// side of the screen in points, the cell count is round((W - inset) / (inset + width)), the
// pitch (W - inset) / count on the pixel grid of `scale`, and the side (pitch - inset) x scale.
double thumbnailSideForScreen(CGSize screenPoints, double scale, double assetInset,
                              double assetWidth);
// thumbnailSize for this machine's screen (1920 x 1080 when none is known) at scale 1 and the
// picker's cells of 160 points with an inset of 2: a square, 152 pixels on a 1080-line screen.
CGSize thumbnailSize();

// "0.1.0"
std::string appVersion();
// "Unwarp v0.1.0"
std::string appFullName();

// The lines that describe this machine in a problem report:
// "Machine name: <name>\niOS: <system version>\nApp version: <version>", and
// "\nFree disk space: <stringFromDataLength>" when the documents' file system answers.
std::string systemMessage();

}  // namespace VXHelper
