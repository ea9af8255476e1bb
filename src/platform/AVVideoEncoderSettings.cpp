#include "platform/AVVideoEncoderSettings.h"

#include <climits>
#include <cmath>
#include <initializer_list>

#include "platform/AVError.h"
#include "platform/AVVideoSettings.h"

using platform::ErrorRef;
using platform::PlistDictionary;
using platform::PlistValue;

namespace {

// Reads one dictionary of the settings; the first fault wins and is kept in `error`.
class Reader {
  public:
    Reader(const PlistDictionary& dictionary, std::string where, ErrorRef* error)
        : _dictionary(dictionary), _where(std::move(where)), _error(error) {}

    bool ok() const { return !_failed; }

    void onlyKeys(std::initializer_list<const char*> known) {
        for (const auto& [key, value] : _dictionary) {
            bool found = false;
            for (const char* k : known) found = found || key == k;
            if (!found) return fail("The " + _where + " have an unknown key " + key);
        }
    }
    const PlistValue* find(const char* key) const {
        auto it = _dictionary.find(key);
        return it == _dictionary.end() ? nullptr : &it->second;
    }
    bool has(const char* key) const { return find(key) != nullptr; }

    void number(const char* key, double& out) {
        const PlistValue* v = find(key);
        if (!v) return;
        if (!v->isInteger() && !v->isReal()) return wrongType(key, "a number");
        const double d = v->doubleValue();
        if (!std::isfinite(d)) return fail("The " + _where + " key " + key + " is no number");
        out = d;
    }
    // A whole count that fits an int, not below `least`.
    void count(const char* key, int& out, int least) {
        double d = out;
        number(key, d);
        if (!ok() || !has(key)) return;
        if (d < least || d > INT_MAX) {
            return fail("The " + _where + " key " + key + " is out of range: " + std::to_string(d));
        }
        out = static_cast<int>(d);
    }
    void boolean(const char* key, bool& out) {
        const PlistValue* v = find(key);
        if (!v) return;
        if (!v->isNumber()) return wrongType(key, "a Boolean");
        out = v->boolValue();
    }
    void text(const char* key, std::string& out) {
        const PlistValue* v = find(key);
        if (!v) return;
        if (!v->string()) return wrongType(key, "a string");
        out = *v->string();
    }
    void text(const char* key, std::optional<std::string>& out) {
        std::string s;
        text(key, s);
        if (ok() && has(key)) out = s;
    }
    const PlistDictionary* dictionary(const char* key) {
        const PlistValue* v = find(key);
        if (!v) return nullptr;
        if (!v->dictionary()) wrongType(key, "a dictionary");
        return v->dictionary();
    }
    // A dictionary inside this one failed, with its own error.
    void failedInside() { _failed = true; }
    void fail(const std::string& description) {
        if (_failed) return;
        _failed = true;
        if (_error) *_error = platform::avError(AVErrorOperationNotAllowed, description);
    }

  private:
    void wrongType(const char* key, const char* type) {
        fail("The " + _where + " key " + key + " must hold " + type);
    }

    const PlistDictionary& _dictionary;
    std::string _where;
    ErrorRef* _error;
    bool _failed = false;
};

void readColor(Reader& top, AVVideoEncoderSettings& s, ErrorRef* error) {
    const PlistDictionary* color = top.dictionary(AVVideoColorPropertiesKey);
    if (!color) return;
    Reader r(*color, "video colour properties", error);
    r.onlyKeys({AVVideoColorPrimariesKey, AVVideoTransferFunctionKey, AVVideoYCbCrMatrixKey});
    r.text(AVVideoColorPrimariesKey, s.primaries);
    r.text(AVVideoTransferFunctionKey, s.transfer);
    r.text(AVVideoYCbCrMatrixKey, s.matrix);
    if (!r.ok()) top.failedInside();
}

void readAspect(Reader& compression, AVVideoEncoderSettings& s, ErrorRef* error) {
    const PlistDictionary* aspect = compression.dictionary(AVVideoPixelAspectRatioKey);
    if (!aspect) return;
    Reader r(*aspect, "pixel aspect ratio properties", error);
    r.onlyKeys(
        {AVVideoPixelAspectRatioHorizontalSpacingKey, AVVideoPixelAspectRatioVerticalSpacingKey});
    r.count(AVVideoPixelAspectRatioHorizontalSpacingKey, s.sarNum, 1);
    r.count(AVVideoPixelAspectRatioVerticalSpacingKey, s.sarDen, 1);
    if (!r.ok()) compression.failedInside();
}

void readCompression(Reader& top, AVVideoEncoderSettings& s, ErrorRef* error) {
    const PlistDictionary* compression = top.dictionary(AVVideoCompressionPropertiesKey);
    if (!compression) return;
    Reader r(*compression, "video compression properties", error);
    r.onlyKeys({AVVideoAverageBitRateKey, AVVideoQualityKey, AVVideoProfileLevelKey,
                AVVideoExpectedSourceFrameRateKey, AVVideoMaxKeyFrameIntervalKey,
                AVVideoAllowFrameReorderingKey, AVVideoPixelAspectRatioKey,
                UWVideoEncoderSpeedPresetKey, UWVideoEncoderParametersKey});
    r.number(AVVideoAverageBitRateKey, s.bitRate);
    r.number(AVVideoExpectedSourceFrameRateKey, s.frameRate);
    r.count(AVVideoMaxKeyFrameIntervalKey, s.keyFrameInterval, 0);
    r.number(AVVideoQualityKey, s.quality);
    r.boolean(AVVideoAllowFrameReorderingKey, s.allowReordering);
    r.text(UWVideoEncoderSpeedPresetKey, s.speedPreset);
    r.text(UWVideoEncoderParametersKey, s.parameters);
    r.text(AVVideoProfileLevelKey, s.profile);
    if (r.ok()) readAspect(r, s, error);
    if (!r.ok()) top.failedInside();
}

}  // namespace

std::optional<AVVideoEncoderSettings> AVVideoEncoderSettings::settingsWithDictionary(
    const PlistDictionary& settings, ErrorRef* error) {
    AVVideoEncoderSettings s;
    Reader r(settings, "video output settings", error);
    r.onlyKeys({AVVideoCodecKey, AVVideoWidthKey, AVVideoHeightKey, AVVideoColorPropertiesKey,
                AVVideoCompressionPropertiesKey});
    for (const char* key : {AVVideoCodecKey, AVVideoWidthKey, AVVideoHeightKey}) {
        if (r.ok() && !r.has(key)) r.fail(std::string("The video output settings lack ") + key);
    }
    std::string type;
    r.text(AVVideoCodecKey, type);
    if (r.ok()) {
        const AVVideoCodecInfo* codec = videoCodecWithType(type);
        if (!codec) {
            if (error) {
                *error = platform::avError(AVErrorEncoderNotFound,
                                           "No video codec is called \"" + type + "\"");
            }
            return std::nullopt;
        }
        s.codec = codec->codec;
    }
    r.count(AVVideoWidthKey, s.width, 0);
    r.count(AVVideoHeightKey, s.height, 0);
    if (r.ok()) readColor(r, s, error);
    if (r.ok()) readCompression(r, s, error);
    if (!r.ok()) return std::nullopt;
    return s;
}
