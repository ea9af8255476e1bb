# Libraries come from Debian packages installed by scripts/bootstrap.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CLI11 REQUIRED)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
# The HTTP client that posts crash reports (the tests also run its server).
pkg_check_modules(CPP_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

add_library(unwarp_platform_deps INTERFACE)
add_library(unwarp::platform_deps ALIAS unwarp_platform_deps)
target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::PLIST PkgConfig::CPP_HTTPLIB)

# Image codecs, metadata, colour management, scaling, FFmpeg (with its device input for the
# camera), the photo library's SQLite catalogue and ICU's text rules behind the platform
# services.
foreach(mod IN ITEMS libjpeg libpng zlib libdeflate libtiff-4 libheif libwebp libwebpdemux
                     libwebpmux exiv2 zimg lcms2 imagequant icu-uc
                     libavformat libavcodec libavutil libswscale libavdevice sqlite3)
    string(MAKE_C_IDENTIFIER "${mod}" var)
    string(TOUPPER "${var}" var)
    pkg_check_modules(${var} REQUIRED IMPORTED_TARGET ${mod})
    target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::${var})
endforeach()
# giflib ships no pkg-config module.
find_library(GIF_LIBRARY gif REQUIRED)
find_path(GIF_INCLUDE_DIR gif_lib.h REQUIRED)
target_link_libraries(unwarp_platform_deps INTERFACE ${GIF_LIBRARY})
target_include_directories(unwarp_platform_deps INTERFACE ${GIF_INCLUDE_DIR})
