#include "platform/linux/BinaryPropertyListReader.h"

#include <algorithm>
#include <cstring>
#include <vector>

// libplist 2.2 reads this form by recursion and copies a shared object once per reference, so a
// small file whose arrays refer to one another twice over expands exponentially; it also misreads
// dates before 2001 that have a fraction. This reader measures every object once (memoised),
// refuses cycles, depth, counts and expansion beyond the limits, and only then builds the tree.

namespace platform {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

enum ObjectType : std::uint8_t {
    kSimple = 0x0,
    kInteger = 0x1,
    kReal = 0x2,
    kDate = 0x3,
    kData = 0x4,
    kAsciiString = 0x5,
    kUtf16String = 0x6,
    kUID = 0x8,
    kArray = 0xA,
    kDictionary = 0xD,
};

std::uint64_t bigEndian(const std::uint8_t* p, std::size_t n) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
}

double bigEndianReal(const std::uint8_t* p, std::size_t n) {
    if (n == 4) {
        std::uint32_t bits = static_cast<std::uint32_t>(bigEndian(p, 4));
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    std::uint64_t bits = bigEndian(p, 8);
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

void appendUtf8(std::string& out, std::uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Unpaired surrogates become U+FFFD so that every string we hand out is valid UTF-8.
std::string utf16ToUtf8(const std::uint8_t* p, std::uint64_t units) {
    std::string out;
    out.reserve(units);
    for (std::uint64_t i = 0; i < units; ++i) {
        std::uint32_t u = static_cast<std::uint32_t>(bigEndian(p + 2 * i, 2));
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < units) {
            std::uint32_t low = static_cast<std::uint32_t>(bigEndian(p + 2 * (i + 1), 2));
            if (low >= 0xDC00 && low < 0xE000) {
                appendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                ++i;
                continue;
            }
        }
        appendUtf8(out, (u >= 0xD800 && u < 0xE000) ? 0xFFFD : u);
    }
    return out;
}

class Reader {
  public:
    Reader(const std::uint8_t* bytes, std::size_t size, const BinaryPropertyListReader::Limits& l)
        : _bytes(bytes), _size(size), _limits(l) {}

    std::optional<PlistValue> run() {
        if (!readTrailer()) return std::nullopt;
        _measures.assign(_objectCount, Measure{});
        if (!measure(_top, 1)) return std::nullopt;
        return build(_top);
    }

    std::string failure() const { return _failure; }

  private:
    // An object's marker decoded: its type, the low nibble, the element or byte count and where
    // its payload starts. The payload is known to lie inside the object area.
    struct Object {
        std::uint8_t type = 0;
        std::uint8_t info = 0;
        std::uint64_t count = 0;
        std::size_t payload = 0;
    };

    // What an object expands to; counts saturate just above the limits.
    struct Measure {
        std::uint32_t objects = 0;
        std::uint32_t payloadBytes = 0;
        std::uint16_t height = 0;
        std::uint8_t state = 0;  // 0 not seen, 1 on the current path, 2 measured
    };

    bool fail(const std::string& why) {
        if (_failure.empty()) _failure = why;
        return false;
    }

    bool readTrailer() {
        if (_size < kHeaderSize + kTrailerSize + 2)
            return fail("binary property list too short (" + std::to_string(_size) + " bytes)");
        if (std::memcmp(_bytes, "bplist00", kHeaderSize) != 0)
            return fail("unsupported binary property list version");
        const std::uint8_t* t = _bytes + _size - kTrailerSize;
        _offsetSize = t[6];
        _refSize = t[7];
        _objectCount = bigEndian(t + 8, 8);
        _top = bigEndian(t + 16, 8);
        _tableOffset = bigEndian(t + 24, 8);
        if (_offsetSize < 1 || _offsetSize > 8 || _refSize < 1 || _refSize > 8)
            return fail("bad offset or reference size in the trailer");
        if (_objectCount < 1 || _top >= _objectCount)
            return fail("bad object count or top object in the trailer");
        if (_objectCount > _limits.maxObjects)
            return fail("more than " + std::to_string(_limits.maxObjects) + " objects (" +
                        std::to_string(_objectCount) + ")");
        std::uint64_t tableEnd = _size - kTrailerSize;
        if (_tableOffset <= kHeaderSize || _tableOffset > tableEnd ||
            _objectCount > (tableEnd - _tableOffset) / _offsetSize)
            return fail("offset table outside the data");
        return true;
    }

    bool offsetOf(std::uint64_t index, std::size_t* offset) {
        if (index >= _objectCount)
            return fail("reference " + std::to_string(index) + " out of range");
        std::uint64_t o = bigEndian(_bytes + _tableOffset + index * _offsetSize, _offsetSize);
        if (o < kHeaderSize || o >= _tableOffset)
            return fail("object " + std::to_string(index) + " lies outside the object area");
        *offset = static_cast<std::size_t>(o);
        return true;
    }

    static std::uint64_t unitSize(std::uint8_t type, std::uint8_t info) {
        switch (type) {
            case kInteger:
                return info <= 4 ? (1u << info) : 0;
            case kReal:
                return (info == 2 || info == 3) ? (1u << info) : 0;
            case kDate:
                return info == 3 ? 8 : 0;
            case kUID:
                return info < 8 ? info + 1u : 0;
            default:
                return 0;
        }
    }

    bool objectAt(std::uint64_t index, Object* object) {
        std::size_t at;
        if (!offsetOf(index, &at)) return false;
        const std::string where = " at object " + std::to_string(index);
        std::uint8_t marker = _bytes[at++];
        object->type = marker >> 4;
        object->info = marker & 0xF;
        std::uint64_t unit = 1;
        switch (object->type) {
            case kSimple:
                if (object->info != 0x8 && object->info != 0x9)
                    return fail("unsupported simple object" + where);
                object->payload = at;
                return true;
            case kInteger:
            case kReal:
            case kDate:
            case kUID:
                object->count = unitSize(object->type, object->info);
                if (object->count == 0) return fail("bad scalar size" + where);
                break;
            case kData:
            case kAsciiString:
            case kUtf16String:
            case kArray:
            case kDictionary:
                if (!readCount(object->info, &at, &object->count, where)) return false;
                unit = object->type == kUtf16String  ? 2
                       : object->type == kArray      ? _refSize
                       : object->type == kDictionary ? 2u * _refSize
                                                     : 1;
                break;
            default:
                return fail("unsupported object type" + where);
        }
        object->payload = at;
        if (object->count > (_tableOffset - at) / unit)
            return fail("count " + std::to_string(object->count) + " beyond the data" + where);
        return true;
    }

    bool readCount(std::uint8_t info, std::size_t* at, std::uint64_t* count,
                   const std::string& where) {
        if (info != 0xF) {
            *count = info;
            return true;
        }
        if (*at >= _tableOffset) return fail("truncated count" + where);
        std::uint8_t marker = _bytes[(*at)++];
        if ((marker >> 4) != kInteger || (marker & 0xF) > 3) return fail("bad count" + where);
        std::size_t n = std::size_t{1} << (marker & 0xF);
        if (n > _tableOffset - *at) return fail("truncated count" + where);
        *count = bigEndian(_bytes + *at, n);
        *at += n;
        return true;
    }

    std::uint64_t referenceAt(const Object& o, std::uint64_t i) const {
        return bigEndian(_bytes + o.payload + i * _refSize, _refSize);
    }

    static std::uint64_t references(const Object& o) {
        return o.type == kArray ? o.count : o.type == kDictionary ? 2 * o.count : 0;
    }

    bool measure(std::uint64_t index, int depth) {
        if (index >= _objectCount)
            return fail("reference " + std::to_string(index) + " out of range");
        Measure& m = _measures[index];
        if (m.state == 1) return fail("reference cycle through object " + std::to_string(index));
        if (m.state == 2) return depth - 1 + m.height <= _limits.maxDepth || tooDeep();
        Object o;
        if (!objectAt(index, &o)) return false;
        bool container = o.type == kArray || o.type == kDictionary;
        if (container && depth > _limits.maxDepth) return tooDeep();
        m.state = 1;
        std::uint64_t objects = 1;
        std::uint64_t payload = o.type == kUtf16String                        ? 3 * o.count
                                : (o.type == kData || o.type == kAsciiString) ? o.count
                                                                              : 0;
        std::uint16_t height = container ? 1 : 0;
        for (std::uint64_t i = 0; i < references(o); ++i) {
            std::uint64_t child = referenceAt(o, i);
            if (!measure(child, depth + 1)) return false;
            if (o.type == kDictionary && i < o.count && !isString(child))
                return fail("dictionary key is not a string at object " + std::to_string(index));
            const Measure& c = _measures[child];
            objects = std::min<std::uint64_t>(objects + c.objects, _limits.maxObjects + 1);
            payload =
                std::min<std::uint64_t>(payload + c.payloadBytes, _limits.maxPayloadBytes + 1);
            height = std::max<std::uint16_t>(height, c.height + 1);
        }
        if (objects > _limits.maxObjects)
            return fail("more than " + std::to_string(_limits.maxObjects) + " values");
        if (payload > _limits.maxPayloadBytes)
            return fail("more than " + std::to_string(_limits.maxPayloadBytes) +
                        " bytes of strings and data");
        m = {static_cast<std::uint32_t>(objects), static_cast<std::uint32_t>(payload), height, 2};
        return true;
    }

    bool tooDeep() {
        return fail("nested deeper than " + std::to_string(_limits.maxDepth) + " levels");
    }

    bool isString(std::uint64_t index) {
        Object o;
        return objectAt(index, &o) && (o.type == kAsciiString || o.type == kUtf16String);
    }

    // Only measured objects reach here, so every check below has already passed once.
    std::optional<PlistValue> build(std::uint64_t index) {
        Object o;
        if (!objectAt(index, &o)) return std::nullopt;
        const std::uint8_t* p = _bytes + o.payload;
        switch (o.type) {
            case kSimple:
                return PlistValue(o.info == 0x9);
            case kInteger:
                return integer(p, o.count, index);
            case kReal:
                return PlistValue(bigEndianReal(p, o.count));
            case kDate:
                return PlistValue(PlistDate{bigEndianReal(p, 8)});
            case kUID:
                return PlistValue(PlistUID{bigEndian(p, o.count)});
            case kData:
                return PlistValue(PlistData(p, p + o.count));
            case kAsciiString:
                return ascii(p, o.count, index);
            case kUtf16String:
                return PlistValue(utf16ToUtf8(p, o.count));
            case kArray:
                return array(o);
            case kDictionary:
                return dictionary(o);
        }
        fail("unsupported object type at object " + std::to_string(index));
        return std::nullopt;
    }

    // 1, 2 and 4 byte integers are unsigned, 8 bytes signed; 16 bytes carry the unsigned values
    // above the signed range, which keep their bits (unsignedIntegerValue gives them back).
    std::optional<PlistValue> integer(const std::uint8_t* p, std::uint64_t size,
                                      std::uint64_t index) {
        if (size == 16) {
            std::uint64_t high = bigEndian(p, 8);
            std::uint64_t low = bigEndian(p + 8, 8);
            bool negative = static_cast<std::int64_t>(low) < 0;
            if (high != 0 && !(high == ~std::uint64_t{0} && negative)) {
                fail("integer beyond 64 bits at object " + std::to_string(index));
                return std::nullopt;
            }
            return PlistValue(static_cast<std::int64_t>(low));
        }
        return PlistValue(static_cast<std::int64_t>(bigEndian(p, size)));
    }

    std::optional<PlistValue> ascii(const std::uint8_t* p, std::uint64_t count,
                                    std::uint64_t index) {
        if (std::any_of(p, p + count, [](std::uint8_t c) { return c >= 0x80; })) {
            fail("non-ASCII byte in an ASCII string at object " + std::to_string(index));
            return std::nullopt;
        }
        return PlistValue(std::string(reinterpret_cast<const char*>(p), count));
    }

    std::optional<PlistValue> array(const Object& o) {
        PlistArray elements;
        elements.reserve(o.count);
        for (std::uint64_t i = 0; i < o.count; ++i) {
            auto element = build(referenceAt(o, i));
            if (!element) return std::nullopt;
            elements.push_back(std::move(*element));
        }
        return PlistValue(std::move(elements));
    }

    std::optional<PlistValue> dictionary(const Object& o) {
        PlistDictionary entries;
        for (std::uint64_t i = 0; i < o.count; ++i) {
            auto key = build(referenceAt(o, i));
            auto value = build(referenceAt(o, o.count + i));
            if (!key || !value || !key->string()) return std::nullopt;
            entries.insert_or_assign(*key->string(), std::move(*value));
        }
        return PlistValue(std::move(entries));
    }

    const std::uint8_t* _bytes;
    std::size_t _size;
    BinaryPropertyListReader::Limits _limits;
    std::string _failure;
    std::size_t _offsetSize = 0;
    std::size_t _refSize = 0;
    std::uint64_t _objectCount = 0;
    std::uint64_t _top = 0;
    std::uint64_t _tableOffset = 0;
    std::vector<Measure> _measures;
};

}  // namespace

bool BinaryPropertyListReader::looksBinary(const std::uint8_t* bytes, std::size_t size) {
    return size >= 6 && std::memcmp(bytes, "bplist", 6) == 0;
}

std::optional<PlistValue> BinaryPropertyListReader::read(const std::uint8_t* bytes,
                                                         std::size_t size, const Limits& limits,
                                                         std::string* failure) {
    Reader reader(bytes, size, limits);
    auto value = reader.run();
    if (!value && failure) *failure = reader.failure();
    return value;
}

}  // namespace platform
