// JPEG shrink-on-load for thumbnails: libjpeg-turbo scales by 1/2, 1/4 or 1/8 inside the
// inverse DCT, which is most of the speed of a thumbnail of a large photo. The EXIF block is
// taken from the same pass and read by exiv2, so the file is read once.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include <jpeglib.h>
#include <setjmp.h>

#include "platform/linux/Thumbnail.h"

namespace platform::thumbnails {
namespace {

struct ErrorJump {
    jpeg_error_mgr pub;
    jmp_buf jump;
};

void onError(j_common_ptr cinfo) {
    longjmp(reinterpret_cast<ErrorJump*>(cinfo->err)->jump, 1);
}

void onMessage(j_common_ptr) {}

// The decode itself, apart so that no object with a destructor lives across setjmp.
bool decode(FILE* file, std::uint32_t minSide, std::vector<std::uint8_t>& pixels, ShrunkJpeg& out,
            unsigned& width, unsigned& height, int& components, std::vector<std::uint8_t>& exif) {
    jpeg_decompress_struct cinfo;
    ErrorJump err;
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = onError;
    err.pub.output_message = onMessage;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, file);
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&cinfo, TRUE);
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m; m = m->next) {
        if (m->data_length > 6 && std::memcmp(m->data, "Exif\0\0", 6) == 0) {
            exif.assign(m->data + 6, m->data + m->data_length);
            break;
        }
    }
    // Above the image source's pixel limit: left to it, which refuses with a clear error.
    if (std::uint64_t(cinfo.image_width) * cinfo.image_height > 400ull * 1000 * 1000) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    out.pixelWidth = cinfo.image_width;
    out.pixelHeight = cinfo.image_height;
    if (cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    const unsigned longSide = std::max(cinfo.image_width, cinfo.image_height);
    unsigned denom = 8;
    while (denom > 1 && (longSide + denom - 1) / denom < minSide) denom /= 2;
    cinfo.scale_num = 1;
    cinfo.scale_denom = denom;
    cinfo.out_color_space = cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&cinfo);
    width = cinfo.output_width;
    height = cinfo.output_height;
    components = cinfo.output_components;
    pixels.resize(std::size_t(cinfo.output_width) * cinfo.output_height * components);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row =
            pixels.data() + std::size_t(cinfo.output_scanline) * cinfo.output_width * components;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

int exifOrientation(const std::vector<std::uint8_t>& exif) {
    if (exif.empty()) return 1;
    try {
        Exiv2::ExifData data;
        Exiv2::ExifParser::decode(data, exif.data(), static_cast<std::uint32_t>(exif.size()));
        auto it = data.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
        if (it != data.end() && it->count() > 0) {
            long value = it->toLong();
            return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
        }
    } catch (...) {
        // A damaged EXIF block leaves the picture as stored.
    }
    return 1;
}

}  // namespace

std::optional<ShrunkJpeg> decodeJpegShrunk(const std::string& path, std::uint32_t minSide) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!file) return std::nullopt;
    std::vector<std::uint8_t> pixels, exif;
    ShrunkJpeg out;
    unsigned width = 0, height = 0;
    int components = 0;
    if (!decode(file.get(), minSide, pixels, out, width, height, components, exif))
        return std::nullopt;
    PixelLayout layout{8, components, kCGImageAlphaNone};
    out.image = Bitmap(width, height, layout,
                       components == 1 ? ColorSpace::deviceGray() : ColorSpace::deviceRGB(),
                       std::move(pixels), std::size_t(width) * components);
    out.orientation = exifOrientation(exif);
    return out;
}

}  // namespace platform::thumbnails
