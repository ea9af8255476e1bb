# Libraries come from Debian packages installed by scripts/bootstrap.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CLI11 REQUIRED)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)

add_library(unwarp_platform_deps INTERFACE)
add_library(unwarp::platform_deps ALIAS unwarp_platform_deps)
target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::PLIST)

# Codec, media and database libraries join the platform layer as their backends arrive.
foreach(mod IN ITEMS libjpeg libpng libtiff-4 libheif exiv2 zimg lcms2 imagequant
                     libavformat libavcodec libavutil libswscale sqlite3)
    string(MAKE_C_IDENTIFIER "${mod}" var)
    string(TOUPPER "${var}" var)
    pkg_check_modules(${var} QUIET IMPORTED_TARGET ${mod})
endforeach()

# The platform layer asks libheif which encoders exist (the image writers it offers).
target_link_libraries(unwarp_platform_deps INTERFACE PkgConfig::LIBHEIF)
# Media services: FFmpeg for movies, zimg for plane scaling.
target_link_libraries(unwarp_platform_deps INTERFACE
    PkgConfig::LIBAVFORMAT PkgConfig::LIBAVCODEC PkgConfig::LIBAVUTIL PkgConfig::LIBSWSCALE
    PkgConfig::ZIMG)
