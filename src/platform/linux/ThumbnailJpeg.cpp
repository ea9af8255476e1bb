// JPEG shrink-on-load for thumbnails: libjpeg-turbo scales by 1/2, 1/4 or 1/8 inside the
// inverse DCT, which is most of the speed of a thumbnail of a large photo.
#include <cstddef>
#include <cstdio>
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
bool decode(FILE* file, std::uint32_t minSide, std::vector<std::uint8_t>& pixels, unsigned& width,
            unsigned& height, int& components) {
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
    jpeg_read_header(&cinfo, TRUE);
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
    pixels.resize(std::size_t(width) * height * components);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = pixels.data() + std::size_t(cinfo.output_scanline) * width * components;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

}  // namespace

std::optional<Bitmap> decodeJpegShrunk(const std::string& path, std::uint32_t minSide) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!file) return std::nullopt;
    std::vector<std::uint8_t> pixels;
    unsigned width = 0, height = 0;
    int components = 0;
    if (!decode(file.get(), minSide, pixels, width, height, components)) return std::nullopt;
    PixelLayout layout{8, components, kCGImageAlphaNone};
    return Bitmap(width, height, layout,
                  components == 1 ? ColorSpace::deviceGray() : ColorSpace::deviceRGB(),
                  std::move(pixels), std::size_t(width) * components);
}

}  // namespace platform::thumbnails
