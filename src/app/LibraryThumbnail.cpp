// `unwarp library thumbnail`: the library's thumbnail of an asset, drawn to fit a box and
// handed over like a result, so that no file of the user's is ever replaced.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <regex>

#include "app/Command.h"
#include "app/LibraryAssets.h"
#include "app/ResultHandOver.h"
#include "platform/BitmapContext.h"
#include "platform/FileManager.h"
#include "platform/ImageDestination.h"

namespace app::library {

using namespace platform;

namespace {

struct Box {
    std::uint32_t width;
    std::uint32_t height;
};

std::optional<Box> parseBox(const std::string& text) {
    static const std::regex pattern("^([1-9][0-9]{0,4})x([1-9][0-9]{0,4})$");
    std::smatch m;
    if (!std::regex_match(text, m, pattern)) return std::nullopt;
    return Box{static_cast<std::uint32_t>(std::stoul(m[1])),
               static_cast<std::uint32_t>(std::stoul(m[2]))};
}

// The picture scaled to fit the box, keeping its proportions and never enlarged.
std::optional<Bitmap> fitted(const Bitmap& image, Box box, ErrorRef* error) {
    const double scale = std::min({double(box.width) / double(image.width()),
                                   double(box.height) / double(image.height()), 1.0});
    const auto side = [scale](std::size_t length) {
        return std::max<std::size_t>(1, std::size_t(std::lround(double(length) * scale)));
    };
    const std::size_t width = side(image.width()), height = side(image.height());
    const ColorSpace space =
        image.layout().colorComponents == 3 ? image.colorSpace() : ColorSpace::deviceRGB();
    const PixelLayout layout{8, 3, kCGImageAlphaPremultipliedLast};
    auto context =
        BitmapContext::create(width, height, 8, space, Bitmap::bitmapInfoForLayout(layout), error);
    if (!context) return std::nullopt;
    context->setInterpolationQuality(kCGInterpolationHigh);
    if (!context->drawImage(CGRect{{0, 0}, {double(width), double(height)}}, image, error))
        return std::nullopt;
    return context->createImage();
}

}  // namespace

int writeThumbnail(PhotoLibrary& library, const std::string& identifier, const std::string& size,
                   const std::string& out) {
    const auto box = parseBox(size);
    if (!box) return reportFailure("--size takes WIDTHxHEIGHT in pixels, like 256x256: " + size);
    std::string extension = FileManager::pathExtension(out);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool jpeg = extension == "jpg" || extension == "jpeg";
    if (!jpeg && extension != "png")
        return reportFailure("a thumbnail is written as .png, .jpg or .jpeg: " + out);

    auto asset = library.fetchAssetsWithLocalIdentifiers({identifier}, {});
    if (!asset.firstObject())
        return reportFailure("no asset \"" + identifier + "\" in " + library.locations().root +
                             " (it was deleted, or never existed)");
    ErrorRef error;
    auto thumbnail =
        library.requestThumbnail(identifier, std::max(box->width, box->height), &error);
    std::optional<Bitmap> picture;
    if (thumbnail) picture = fitted(*thumbnail, *box, &error);
    if (!picture)
        return reportFailure("no thumbnail of " + identifier + ": " +
                             (error ? error->localizedDescription() : std::string("unknown")));

    // Written under its final name in a private folder beside the target, then handed over
    // to the first free name there: a rename on one file system, never over another file.
    std::string folder = FileManager::stringByDeletingLastPathComponent(out);
    if (folder.empty()) folder = ".";
    std::string scratch = FileManager::stringByAppendingPathComponent(folder, ".unwarp-XXXXXX");
    if (!mkdtemp(scratch.data()))
        return reportFailure("can't write into " + folder + ": " + std::strerror(errno));
    const std::string file =
        FileManager::stringByAppendingPathComponent(scratch, FileManager::lastPathComponent(out));
    auto destination =
        ImageDestination::createWithURL(file, jpeg ? "public.jpeg" : "public.png", 1, &error);
    std::optional<HandedOver> written;
    if (destination) {
        destination->addImage(
            *picture, {{"kCGImageDestinationLossyCompressionQuality", 0.85}, {"HasAlpha", !jpeg}});
        if (destination->finalize(&error))
            written = handOverResult(file, std::nullopt, folder, &error);
    }
    FileManager::removeItemAtPath(file);
    rmdir(scratch.c_str());
    if (!written)
        return reportFailure("the thumbnail was not written to " + out + ": " +
                             (error ? error->localizedDescription() : std::string("unknown")));
    // A bare name given is printed bare, not as "./name".
    const bool bare = out.find('/') == std::string::npos;
    std::cout << (bare ? FileManager::lastPathComponent(written->output) : written->output) << "\n";
    return kExitSuccess;
}

}  // namespace app::library
