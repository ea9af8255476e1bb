# Libraries come from Debian packages installed by scripts/bootstrap.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CLI11 REQUIRED)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
# The HTTP client that posts crash reports, linked by the report module only (the tests also
# run its server).
pkg_check_modules(CPP_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

add_library(unwarp_platform_deps INTERFACE)
add_library(unwarp::platform_deps ALIAS unwarp_platform_deps)
target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::PLIST)

# Image codecs, colour management, scaling, the photo library's SQLite catalogue and
# ICU's text rules behind the platform services; libmd's MD5 names the thumbnails.
# ISA-L inflates the pixel data of PNGs read row by row.
foreach(mod IN ITEMS libjpeg libpng zlib libisal libtiff-4 libwebp libwebpdemux libwebpmux zimg
                     lcms2 imagequant icu-uc sqlite3 libmd)
    string(MAKE_C_IDENTIFIER "${mod}" var)
    string(TOUPPER "${var}" var)
    pkg_check_modules(${var} REQUIRED IMPORTED_TARGET ${mod})
    target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::${var})
endforeach()

# exiv2 for the photo metadata, and libjpeg again for the shrunk thumbnails beside it: only the
# metadata module links them.
pkg_check_modules(EXIV2 REQUIRED IMPORTED_TARGET exiv2)
add_library(unwarp_metadata_deps INTERFACE)
add_library(unwarp::metadata_deps ALIAS unwarp_metadata_deps)
target_link_libraries(unwarp_metadata_deps INTERFACE PkgConfig::EXIV2 PkgConfig::LIBJPEG)

# FFmpeg (with its device input for the camera) and libheif with its HEVC codecs: only the
# media module links them, so that a command that never meets a movie or a HEIC picture starts
# without them.
add_library(unwarp_media_deps INTERFACE)
add_library(unwarp::media_deps ALIAS unwarp_media_deps)
foreach(mod IN ITEMS libheif libavformat libavcodec libavutil libswscale libavdevice)
    string(MAKE_C_IDENTIFIER "${mod}" var)
    string(TOUPPER "${var}" var)
    pkg_check_modules(${var} REQUIRED IMPORTED_TARGET ${mod})
    target_link_libraries(unwarp_media_deps INTERFACE PkgConfig::${var})
endforeach()
# giflib ships no pkg-config module.
find_library(GIF_LIBRARY gif REQUIRED)
find_path(GIF_INCLUDE_DIR gif_lib.h REQUIRED)
target_link_libraries(unwarp_platform_deps INTERFACE ${GIF_LIBRARY})
target_include_directories(unwarp_platform_deps INTERFACE ${GIF_INCLUDE_DIR})
