#include "templates/TemplateCatalogue.h"

#include <cctype>
#include <cstdio>

#include "platform/Screen.h"
#include "templates/VXHelperTemplate.h"

namespace TemplateCatalogue {

namespace {

const VRSizeOptions kClipNormal{VRSizeOptionRatioClip, VRSizeOptionNormal};
const VRSizeOptions kFitNormal{VRSizeOptionRatioFit, VRSizeOptionNormal};
const VRSizeOptions kClipSmart{VRSizeOptionRatioClip, VRSizeOptionSmart};
const VRSizeOptions kStretchSmart{VRSizeOptionStretch, VRSizeOptionSmart};
// The X (Twitter) rows store no size mode; the preset view completes them with Normal.
const VRSizeOptions kClip{VRSizeOptionRatioClip};
const VRSizeOptions kFit{VRSizeOptionRatioFit};

// Stands in the table for the size of this machine's screen.
constexpr CGSize kDeviceScreen{-1, -1};

std::vector<Section> buildSections() {
    std::vector<Section> sections = {
        // clang-format off
        {"Unwarp",
         "Anamorphic un-warp",
         {false, false, false},
         {
             {"uw-133", "Unwarp 1.33x", {133, 100}, {133, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-133", ""},
             {"uw-150", "Unwarp 1.50x", {150, 100}, {150, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-150", ""},
             {"uw-155", "Unwarp 1.55x", {155, 100}, {155, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-155", ""},
             {"uw-160", "Unwarp 1.60x", {160, 100}, {160, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-160", ""},
             {"uw-175", "Unwarp 1.75x", {175, 100}, {175, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-175", ""},
             {"uw-180", "Unwarp 1.80x", {180, 100}, {180, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-180", ""},
             {"uw-200", "Unwarp 2.00x", {200, 100}, {200, 100}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kStretchSmart, "tpl-uw-200", ""},
         }},
        {"Facebook",
         "Create content for Facebook",
         {false, false, false},
         {
             {"fb-profile", "Facebook Profile", {360, 360}, {360, 360}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-profile", "fb-icon"},
             {"fb-profile-max", "Facebook Profile HD", {720, 720}, {720, 720}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-profile-hd", "fb-icon"},
             {"fb-story", "Facebook Story", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-story", "fb-icon"},
             {"fb-cover", "Facebook Cover", {820, 360}, {820, 462}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-cover", "fb-icon"},
             {"fb-cover-2x", "Facebook Cover HD", {1640, 720}, {1640, 924}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-cover-hd", "fb-icon"},
             {"fb-cover-max", "Facebook Cover HD+", {2037, 754}, {1640, 924}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-cover-hdp", "fb-icon"},
             {"fb-group", "Facebook Group", {1640, 856}, {1640, 856}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-group", "fb-icon"},
             {"fb-event", "Facebook Event", {1200, 628}, {1200, 628}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-event", "fb-icon"},
             {"fb-event-max", "Facebook Event HD", {1920, 1005}, {1920, 1005}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-event-hd", "fb-icon"},
             {"fb-page", "Facebook Page", {1958, 745}, {1958, 745}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-page", "fb-icon"},
             {"fb-post-1", "Facebook Square", {1080, 1080}, {1080, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-square", "fb-icon"},
             {"fb-post-1-max", "Facebook Square HD", {2048, 2048}, {1080, 1080}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-square-hd", "fb-icon"},
             {"fb-post-2", "Facebook Wide", {1200, 630}, {1280, 720}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-wide", "fb-icon"},
             {"fb-post-2-max", "Facebook Wide HD", {2048, 1149}, {1280, 720}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-wide-hd", "fb-icon"},
             {"fb-post-3", "Facebook Portrait", {1080, 1350}, {720, 1280}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-fb-portrait", "fb-icon"},
             {"fb-post-3-max", "Facebook Portrait HD", {2048, 3072}, {720, 1280}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-fb-portrait-hd", "fb-icon"},
         }},
        {"Instagram",
         "Create media for Instagram",
         {false, false, false},
         {
             {"ig-profile", "Instagram Profile", {320, 320}, {320, 320}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-profile", "ig-icon"},
             {"ig-profile-hd", "Instagram Profile HD", {640, 640}, {640, 640}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMOV, kClipNormal, "tpl-ig-profile-hd", "ig-icon"},
             {"ig-story", "Instagram Story", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-story", "ig-icon"},
             {"ig-story-fit", "Instagram Story Fit", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kFitNormal, "tpl-ig-story-fit", "ig-icon"},
             {"ig-square", "Instagram Square", {1080, 1080}, {1080, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-square", "ig-icon"},
             {"ig-square-fit", "Instagram Square Fit", {1080, 1080}, {1080, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kFitNormal, "tpl-ig-square-fit", "ig-icon"},
             {"ig-portrait", "Instagram Portrait", {1080, 1350}, {1080, 1350}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-portrait", "ig-icon"},
             {"ig-wide", "Instagram Wide", {1080, 566}, {1080, 566}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-wide", "ig-icon"},
             {"ig-reel", "Instagram Reel", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-reel", "ig-icon"},
             {"ig-reel-mini", "Instagram Reel Mini", {1080, 1524}, {1080, 1524}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMOV, kClipNormal, "tpl-ig-reel-mini", "ig-icon"},
         }},
        {"Message & Email",
         "Create media for messages and emails",
         {false, false, false},
         {
             {"ms-icon", "Message Icon", {100, 100}, {100, 100}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClipNormal, "tpl-ms-icon", ""},
             {"ms-thumbnail", "Message Thumbnail", {150, 150}, {150, 150}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClipNormal, "tpl-ms-thumbnail", ""},
             {"ms-square", "Message Square", {600, 600}, {600, 600}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-square", ""},
             {"ms-banner", "Message Banner", {600, 300}, {600, 300}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-banner", ""},
             {"ms-wide", "Message Wide", {600, 400}, {600, 400}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-wide", ""},
             {"ms-icon-mini", "Message Wide Mini", {300, 200}, {300, 200}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-wide-mini", ""},
             {"ms-portrait", "Message Portrait", {600, 900}, {600, 900}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-portrait", ""},
             {"ms-video", "Message Video", {600, 338}, {600, 338}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-video", ""},
             {"ms-poster", "Message Poster", {800, 600}, {800, 600}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClipNormal, "tpl-ms-poster", ""},
             {"ms-poster-mini", "Message Poster Mini", {400, 300}, {400, 300}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClipNormal, "tpl-ms-poster-mini", ""},
             {"ms-universal", "Message Universal", {600, 0}, {600, 0}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-ms-universal", ""},
         }},
        {"Smart Optimization",
         "Resize content based on its size & orientation",
         {false, true, false},
         {
             {"op-ar-1x1", "Aspect Ratio 1:1", {1, 1}, {1, 1}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-1x1", ""},
             {"op-ar-2x1", "Aspect Ratio 2:1", {2, 1}, {2, 1}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-2x1", ""},
             {"op-ar-3x2", "Aspect Ratio 3:2", {3, 2}, {3, 2}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-3x2", ""},
             {"op-ar-4x3", "Aspect Ratio 4:3", {4, 3}, {4, 3}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-4x3", ""},
             {"op-ar-5x4", "Aspect Ratio 5:4", {5, 4}, {5, 4}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-5x4", ""},
             {"op-ar-16x9", "Aspect Ratio 16:9", {16, 9}, {16, 9}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-16x9", ""},
             {"op-ar-16x10", "Aspect Ratio 16:10", {16, 10}, {16, 10}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-16x10", ""},
             {"op-ar-21x9", "Aspect Ratio 21:9", {21, 9}, {21, 9}, VRSizeTypeRatioDown, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-ar-21x9", ""},
             {"op-rel-67", "Two-Thirds Size 67%", {67, 67}, {67, 67}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kClipNormal, "tpl-op-relative-67", ""},
             {"op-rel-50", "Half Size 50%", {50, 50}, {50, 50}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kClipNormal, "tpl-op-relative-50", ""},
             {"op-rel-25", "Quarter Size 25%", {25, 25}, {25, 25}, VRSizeTypePercent, VRFormatTypeAuto, VRFormatTypeAuto, kClipNormal, "tpl-op-relative-25", ""},
             {"op-abs-1280", "Smart 1280 x 720 px", {1280, 720}, {1280, 720}, VRSizeTypePixels, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-absolute-1280", ""},
             {"op-abs-1920", "Smart 1920 x 1080 px", {1920, 1080}, {1920, 1080}, VRSizeTypePixels, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-absolute-1920", ""},
             {"op-abs-3840", "Smart 3840 x 2160 px", {3840, 2160}, {3840, 2160}, VRSizeTypePixels, VRFormatTypeAuto, VRFormatTypeAuto, kClipSmart, "tpl-op-absolute-3840", ""},
         }},
        {"X (Twitter)",
         "Prepare content for X",
         {false, false, false},
         {
             {"tw-profile", "X Profile", {400, 400}, {400, 400}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-profile", ""},
             {"tw-profile-hd", "X Profile HD", {800, 800}, {800, 800}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClip, "tpl-tw-profile", ""},
             {"tw-cover", "X Cover", {1500, 500}, {1500, 500}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-cover", ""},
             {"tw-square", "X Square", {1080, 1080}, {1080, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-square", ""},
             {"tw-square-fit", "X Square Fit", {1080, 1080}, {1080, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kFit, "tpl-tw-square-fit", ""},
             {"tw-portrait", "X Portrait", {1080, 1350}, {720, 1280}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-portrait", ""},
             {"tw-wide", "X Wide", {1600, 900}, {1280, 720}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-wide", ""},
             {"tw-video-portrait-hd", "X Video Portrait HD", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-video-portrait-hd", ""},
             {"tw-video-wide-hd", "X Video Wide HD", {1920, 1080}, {1920, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-video-wide-hd", ""},
             {"tw-video-wide-mini", "X Video Wide Mini", {1080, 608}, {1080, 608}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-video-wide-mini", ""},
             {"tw-card-square", "X Card Square", {800, 800}, {800, 800}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-card-square", ""},
             {"tw-card-wide", "X Card Wide", {800, 418}, {800, 418}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-card-wide", ""},
             {"tw-card-summary", "X Card Summary", {400, 400}, {400, 400}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClip, "tpl-tw-card-summary", ""},
         }},
        {"YouTube",
         "Prepare content for YouTube",
         {true, false, false},
         {
             {"yt-profile", "YouTube Profile", {800, 800}, {800, 800}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-profile", "yt-icon"},
             {"yt-banner", "YouTube Banner", {2560, 1440}, {2560, 1440}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-banner", "yt-icon"},
             {"yt-banner-fit", "YouTube Banner Fit", {2560, 1440}, {2560, 1440}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kFitNormal, "tpl-yt-banner-fit", "yt-icon"},
             {"yt-thumbnail", "YouTube Thumbnail", {1280, 720}, {1280, 720}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-thumbnail", "yt-icon"},
             {"yt-watermark", "YouTube Watermark", {150, 150}, {150, 150}, VRSizeTypePixels, VRFormatTypePNG, VRFormatTypeMP4, kClipNormal, "tpl-yt-watermark", "yt-icon"},
             {"yt-short", "YouTube Short", {1080, 1920}, {1080, 1920}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-short", "yt-icon"},
             {"yt-240p", "YouTube Video 240p", {426, 240}, {426, 240}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-240p", "yt-icon"},
             {"yt-360p", "YouTube Video 360p", {640, 360}, {640, 360}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-360p", "yt-icon"},
             {"yt-480p", "YouTube Video 480p", {854, 480}, {854, 480}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-480p", "yt-icon"},
             {"yt-720p", "YouTube Video 720p", {1280, 720}, {1280, 720}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-720p", "yt-icon"},
             {"yt-1080p", "YouTube Video 1080p", {1920, 1080}, {1920, 1080}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-1080p", "yt-icon"},
             {"yt-1440p", "YouTube Video 1440p", {2560, 1440}, {2560, 1440}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-1440p", "yt-icon"},
             {"yt-2160p", "YouTube Video 2160p", {3840, 2160}, {3840, 2160}, VRSizeTypePixels, VRFormatTypeJPEG, VRFormatTypeMP4, kClipNormal, "tpl-yt-2160p", "yt-icon"},
         }},
        {"Wallpaper",
         "Create wallpapers for your devices",
         {true, false, false},
         {
             {"wp-device", "Your Device", kDeviceScreen, kDeviceScreen, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone", "size-this-icon"},
             {"wp-iphone-47", "8, SE", {750, 1334}, {750, 1334}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-47", "size-47-icon"},
             {"wp-iphone-54", "12-13 Mini", {1080, 2340}, {1080, 2340}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-54", "size-54-icon"},
             {"wp-iphone-55", "8 Plus", {1242, 2208}, {1242, 2208}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-55", "size-55-icon"},
             {"wp-iphone-58", "X, XS, 11 Pro", {1125, 2436}, {1125, 2436}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-58", "size-58-icon"},
             {"wp-iphone-61a", "XR, 11", {828, 1792}, {828, 1792}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-61a", "size-61-icon"},
             {"wp-iphone-61b", "12-13, 12-13 Pro, 14", {1170, 2532}, {1170, 2532}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-61b", "size-61-icon"},
             {"wp-iphone-61c", "14 Pro, 15, 15 Pro, 16", {1179, 2556}, {1179, 2556}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-61c", "size-61-icon"},
             {"wp-iphone-63", "16 Pro", {1206, 2622}, {1206, 2622}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-63", "size-63-icon"},
             {"wp-iphone-65", "XS Max, 11 Pro Max", {1242, 2688}, {1242, 2688}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-65", "size-65-icon"},
             {"wp-iphone-67a", "12-13 Pro Max, 14 Plus", {1284, 2778}, {1284, 2778}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-67a", "size-67-icon"},
             {"wp-iphone-67b", "14-15 Pro Max, 15-16 Plus", {1290, 2796}, {1290, 2796}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-67b", "size-67-icon"},
             {"wp-iphone-69", "16 Pro Max", {1320, 2868}, {1320, 2868}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-iphone-69", "size-69-icon"},
             {"wp-iphone-79", "iPad Mini 5 Gen", {2048, 2048}, {2048, 2048}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-79", "size-79-icon"},
             {"wp-iphone-83", "iPad Mini 6 Gen", {2266, 2266}, {2266, 2266}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-83", "size-83-icon"},
             {"wp-iphone-97", "iPad 5-6 Gen", {2048, 2048}, {2048, 2048}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-97", "size-97-icon"},
             {"wp-iphone-102", "iPad 7-9 Gen", {2160, 2160}, {2160, 2160}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-102", "size-102-icon"},
             {"wp-iphone-105", "iPad Pro 10.5, Air 3 Gen", {2224, 2224}, {2224, 2224}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-105", "size-105-icon"},
             {"wp-iphone-109", "iPad 10 Gen, Air 4-5 Gen", {2360, 2360}, {2360, 2360}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-109", "size-109-icon"},
             {"wp-iphone-110a", "iPad Air 11", {2360, 2360}, {2360, 2360}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-110a", "size-110-icon"},
             {"wp-iphone-110b", "iPad Pro 11 1-4 Gen", {2388, 2388}, {2388, 2388}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-110b", "size-110-icon"},
             {"wp-iphone-110c", "iPad Pro 11 5 Gen", {2420, 2420}, {2420, 2420}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-110c", "size-110-icon"},
             {"wp-iphone-129", "iPad Pro 12.9 2-6 Gen", {2732, 2732}, {2732, 2732}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-129", "size-129-icon"},
             {"wp-iphone-130a", "iPad Air 13", {2732, 2732}, {2732, 2732}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-130a", "size-130-icon"},
             {"wp-iphone-130b", "iPad Pro 13", {2752, 2752}, {2752, 2752}, VRSizeTypePixels, VRFormatTypeHEIC, VRFormatTypeMOV, kClipNormal, "tpl-wp-ipad-130b", "size-130-icon"},
         }},
        // clang-format on
    };
    const CGSize screen = deviceScreenSize();
    for (auto& section : sections) {
        for (auto& entry : section.entries) {
            if (entry.photoSize == kDeviceScreen) entry.photoSize = entry.videoSize = screen;
        }
    }
    return sections;
}

bool isWallpaper(const Entry& entry) {
    return entry.key.rfind("wp-", 0) == 0;
}

// "wp-iphone-47" is a 4.7 inch screen, "wp-iphone-110a" an 11.0 inch one: the key's digits
// in tenths, a letter behind them ignored. Empty when the key has no digits.
std::string diagonalLine(const std::string& key) {
    std::string digits;
    for (char c : key) {
        if (std::isdigit(static_cast<unsigned char>(c))) digits += c;
    }
    if (digits.empty() || digits.size() > 6) return {};
    char text[32];
    std::snprintf(text, sizeof text, "%.1f inches", std::stod(digits) / 10.0);
    return text;
}

TemplatePictureSource iconSource(const std::string& icon) {
    return icon.empty() ? TemplatePictureSource::empty() : TemplatePictureSource::bundle(icon);
}

}  // namespace

CGSize deviceScreenSize() {
    static const CGSize size = platform::Screen::mainScreenPixelSize().value_or(kDefaultScreenSize);
    return size;
}

const std::vector<Section>& sections() {
    static const std::vector<Section> sections = buildSections();
    return sections;
}

const Entry& exampleEntry() {
    static const Entry example{kExampleKey,
                               "RC JPEG / MOV",
                               {1200, 600},
                               {1200, 600},
                               VRSizeTypePixels,
                               VRFormatTypeJPEG,
                               VRFormatTypeMOV,
                               {VRSizeOptionStretch, VRSizeOptionSmart},
                               "",
                               ""};
    return example;
}

VXTemplateRef templateForEntry(const Entry& entry) {
    auto tpl = VXTemplate::create();
    tpl->setLocked(true);
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithSize(entry.photoSize, entry.unit),
                      VRFormat::formatWithTypeMediaType(entry.photoFormat, VRFormatMediaTypePhoto),
                      entry.options, VRFormatMediaTypePhoto);
    tpl->setSizeEntry(VRSizeEntry::sizeEntryWithSize(entry.videoSize, entry.unit),
                      VRFormat::formatWithTypeMediaType(entry.videoFormat, VRFormatMediaTypeVideo),
                      entry.options, VRFormatMediaTypeVideo);
    return tpl;
}

VRTemplateListItem itemForEntry(const Entry& entry) {
    auto subtitles = VXHelper::subtitlesForTemplate(*templateForEntry(entry));
    if (isWallpaper(entry)) {
        subtitles.resize(1);
        if (auto diagonal = diagonalLine(entry.key); !diagonal.empty()) {
            subtitles.push_back(diagonal);
        }
    }
    return VRTemplateListItem(entry.key, entry.title, std::nullopt,
                              {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo},
                              entry.picture.empty() ? TemplatePictureSource::empty()
                                                    : TemplatePictureSource::bundle(entry.picture),
                              iconSource(entry.icon), std::move(subtitles));
}

VRTemplateListItem exampleItem() {
    const auto& entry = exampleEntry();
    // Shown with the multiplication sign, unlike the catalogue rows.
    return VRTemplateListItem(
        entry.key, entry.title, std::nullopt, {VRFormatMediaTypePhoto, VRFormatMediaTypeVideo},
        TemplatePictureSource::empty(), TemplatePictureSource::empty(), {"1200 \u00d7 600 PX [S]"});
}

const std::string& smartSizeNote() {
    // The misspelling is the program's own.
    static const std::string note =
        "Select [red]Smart size[/red] to use 1200 x 600 for landscape / square and 600 x 1200 "
        "for portait photos";
    return note;
}

std::vector<VRTemplateListSectionRef> standardSections() {
    std::vector<VRTemplateListSectionRef> result;
    for (const auto& section : sections()) {
        std::vector<VRTemplateListItem> items;
        for (const auto& entry : section.entries) items.push_back(itemForEntry(entry));
        result.push_back(std::make_shared<VRTemplateListSection>(section.title, section.subtitle,
                                                                 section.config, std::move(items)));
    }
    return result;
}

std::map<std::string, VXTemplateRef> executableTemplates() {
    std::map<std::string, VXTemplateRef> templates;
    for (const auto& section : sections()) {
        for (const auto& entry : section.entries) {
            templates.emplace(entry.key, templateForEntry(entry));
        }
    }
    templates.emplace(kExampleKey, templateForEntry(exampleEntry()));
    return templates;
}

}  // namespace TemplateCatalogue
