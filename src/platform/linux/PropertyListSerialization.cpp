#include "platform/PropertyListSerialization.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "platform/Log.h"
#include "platform/linux/BinaryPropertyListReader.h"

// Writing both forms and reading XML go through libplist 2.2. Binary input is read by
// BinaryPropertyListReader (see there why). libplist frees its trees by recursion, which
// overflows the stack on deeply nested XML, so XML input first passes a nesting scan that
// bounds from above the depth libplist could build.

namespace platform {
namespace {

using Serialization = PropertyListSerialization;

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

ErrorRef makeError(std::int64_t code, const std::string& why) {
    return Error::errorWithDomain(NSCocoaErrorDomain, code,
                                  {{NSDebugDescriptionErrorKey, PlistValue(why)}});
}

bool isValidUtf8(const std::string& s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    std::size_t n = s.size();
    for (std::size_t i = 0; i < n;) {
        unsigned char c = p[i];
        std::size_t len = c < 0x80           ? 1
                          : (c >> 5) == 0x6  ? 2
                          : (c >> 4) == 0xE  ? 3
                          : (c >> 3) == 0x1E ? 4
                                             : 0;
        if (len == 0 || i + len > n) return false;
        std::uint32_t cp = len == 1 ? c : c & (0x7F >> len);
        for (std::size_t k = 1; k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        static constexpr std::uint32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
        if (cp < kMinimum[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp < 0xE000)) return false;
        i += len;
    }
    return true;
}

// Sizes of a tree, accumulated while it is checked or converted.
struct Budget {
    std::size_t objects = 0;
    std::size_t payloadBytes = 0;

    // Empty when within the limits.
    std::string charge(std::size_t payload) {
        if (++objects > Serialization::kMaxObjects)
            return "more than " + std::to_string(Serialization::kMaxObjects) + " values";
        payloadBytes += payload;
        if (payloadBytes > Serialization::kMaxInputBytes)
            return "more than " + std::to_string(Serialization::kMaxInputBytes) +
                   " bytes of strings and data";
        return {};
    }
};

// ---- Writing ----------------------------------------------------------------------------

class Writer {
  public:
    explicit Writer(bool allowsUID) : _allowsUID(allowsUID) {}

    PlistPtr convert(const PlistValue& value, int depth) {
        std::size_t payload = value.string() ? value.string()->size()
                              : value.data() ? value.data()->size()
                                             : 0;
        if (std::string over = _budget.charge(payload); !over.empty()) return fail(over);
        switch (value.type()) {
            case PlistValue::Type::Null:
                return fail("a null value cannot be written");
            case PlistValue::Type::Boolean:
                return made(plist_new_bool(value.boolValue() ? 1 : 0));
            case PlistValue::Type::Integer:
                // libplist keeps integers as 64 bits and writes the signed value.
                return made(plist_new_uint(static_cast<std::uint64_t>(value.integerValue())));
            case PlistValue::Type::Real:
                return made(plist_new_real(value.doubleValue()));
            case PlistValue::Type::String:
                if (!checkText(*value.string())) return nullptr;
                return made(plist_new_string(value.string()->c_str()));
            case PlistValue::Type::Data:
                return made(plist_new_data(reinterpret_cast<const char*>(value.data()->data()),
                                           value.data()->size()));
            case PlistValue::Type::Date:
                return date(*value.date());
            case PlistValue::Type::UID:
                if (!_allowsUID) return fail("a UID can be written only inside a keyed archive");
                return made(plist_new_uid(value.uid()->value));
            case PlistValue::Type::Array:
            case PlistValue::Type::Dictionary:
                if (depth >= Serialization::kMaxDepth)
                    return fail("nested deeper than " + std::to_string(Serialization::kMaxDepth) +
                                " levels");
                return value.isArray() ? array(*value.array(), depth)
                                       : dictionary(*value.dictionary(), depth);
        }
        return fail("unknown value type");
    }

    const std::string& failure() const { return _failure; }

  private:
    PlistPtr fail(const std::string& why) {
        if (_failure.empty()) _failure = why;
        return nullptr;
    }

    PlistPtr made(plist_t node) { return node ? PlistPtr(node) : fail("out of memory"); }

    bool checkText(const std::string& text) {
        if (text.find('\0') != std::string::npos) {
            fail("a string holds a NUL character");
            return false;
        }
        if (!isValidUtf8(text)) {
            fail("a string is not UTF-8");
            return false;
        }
        return true;
    }

    // libplist holds a date as whole seconds in 32 bits and microseconds.
    PlistPtr date(PlistDate date) {
        double t = date.sinceReferenceDate;
        double seconds = std::floor(t);
        double micros = std::round((t - seconds) * 1e6);
        if (micros >= 1e6) seconds += 1, micros = 0;
        if (!std::isfinite(t) || seconds < std::numeric_limits<std::int32_t>::min() ||
            seconds > std::numeric_limits<std::int32_t>::max())
            return fail("a date is out of the writable range");
        return made(
            plist_new_date(static_cast<std::int32_t>(seconds), static_cast<std::int32_t>(micros)));
    }

    PlistPtr array(const PlistArray& elements, int depth) {
        PlistPtr node = made(plist_new_array());
        for (const PlistValue& element : elements) {
            if (!node) return nullptr;
            PlistPtr item = convert(element, depth + 1);
            if (!item) return nullptr;
            plist_array_append_item(node.get(), item.release());
        }
        return node;
    }

    PlistPtr dictionary(const PlistDictionary& entries, int depth) {
        PlistPtr node = made(plist_new_dict());
        for (const auto& [key, value] : entries) {
            if (!node || !checkText(key)) return nullptr;
            PlistPtr item = convert(value, depth + 1);
            if (!item) return nullptr;
            plist_dict_set_item(node.get(), key.c_str(), item.release());
        }
        return node;
    }

    bool _allowsUID;
    Budget _budget;
    std::string _failure;
};

bool isArchive(const PlistValue& value) {
    return !value["$archiver"].isNull();
}

// ---- Reading XML ------------------------------------------------------------------------

// An upper bound of the element nesting in `text` as any XML reader may see it, whether or not
// it honours quotes, comments or declarations the way we do: a start tag always counts, an
// end tag counts down only where every reader must see it as one.
class XmlNestingScan {
  public:
    XmlNestingScan(const char* text, std::size_t size) : _s(text), _n(size) {}

    int maximumDepth() {
        for (std::size_t i = 0; i < _n;) {
            if (_s[i] != '<') {
                ++i;
            } else if (startsWith(i, "<!--")) {
                i = skipPast(i + 4, "-->");
            } else if (startsWith(i, "<![CDATA[")) {
                i = skipPast(i + 9, "]]>");
            } else if (startsWith(i, "<?")) {
                i = skipPast(i + 2, "?>");
            } else if (startsWith(i, "<!")) {
                i = declaration(i);
            } else if (startsWith(i, "</")) {
                std::size_t end = tagEnd(i + 2);
                openInside(i + 2, end);
                if (!_neverCloses && _depth > 0) --_depth;
                i = end;
            } else {
                i = startTag(i);
            }
        }
        return _maximum;
    }

  private:
    bool startsWith(std::size_t i, const char* prefix) const {
        std::size_t len = std::strlen(prefix);
        return _n - i >= len && std::memcmp(_s + i, prefix, len) == 0;
    }

    // Markup inside comments and the like still counts as opening, never as closing.
    std::size_t skipPast(std::size_t i, const char* terminator) {
        std::size_t len = std::strlen(terminator);
        for (; i < _n; ++i) {
            if (_n - i >= len && std::memcmp(_s + i, terminator, len) == 0) return i + len;
            if (_s[i] == '<' && i + 1 < _n && _s[i + 1] != '/') open();
        }
        return _n;
    }

    // Readers differ on internal subsets and unknown declarations; after one, nothing closes.
    std::size_t declaration(std::size_t i) {
        bool doctype = startsWith(i, "<!DOCTYPE");
        std::size_t end = tagEnd(i + 2);
        openInside(i + 2, end);
        if (!doctype || std::memchr(_s + i, '[', end - i) != nullptr) _neverCloses = true;
        return end;
    }

    // Past the first '>' outside quotes: a reader that ignores quotes ends no later.
    std::size_t tagEnd(std::size_t i) const {
        char quote = 0;
        for (; i < _n; ++i) {
            char c = _s[i];
            if (quote) {
                if (c == quote) quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                return i + 1;
            }
        }
        return _n;
    }

    std::size_t startTag(std::size_t i) {
        std::size_t end = tagEnd(i + 1);
        bool quoted = std::memchr(_s + i, '"', end - i) || std::memchr(_s + i, '\'', end - i);
        bool selfClosing = end - i >= 3 && _s[end - 1] == '>' && _s[end - 2] == '/';
        if (quoted || !selfClosing) open();
        openInside(i + 1, end);
        return end;
    }

    // A reader that ignores quotes sees the markup inside them.
    void openInside(std::size_t from, std::size_t end) {
        for (std::size_t k = from; k < end; ++k) {
            if (_s[k] == '<' && k + 1 < end && _s[k + 1] != '/') open();
        }
    }

    void open() { _maximum = std::max(_maximum, ++_depth); }

    const char* _s;
    std::size_t _n;
    int _depth = 0;
    int _maximum = 0;
    bool _neverCloses = false;
};

class XmlConverter {
  public:
    std::optional<PlistValue> convert(plist_t node, int depth) {
        if (!node) return fail("missing value");
        std::uint64_t length = 0;
        switch (plist_get_node_type(node)) {
            case PLIST_BOOLEAN: {
                std::uint8_t v = 0;
                plist_get_bool_val(node, &v);
                return charged(PlistValue(v != 0), 0);
            }
            case PLIST_UINT: {
                std::uint64_t v = 0;
                plist_get_uint_val(node, &v);
                return charged(PlistValue(static_cast<std::int64_t>(v)), 0);
            }
            case PLIST_REAL: {
                double v = 0;
                plist_get_real_val(node, &v);
                return charged(PlistValue(v), 0);
            }
            case PLIST_STRING:
            case PLIST_KEY: {
                const char* p = plist_get_string_ptr(node, &length);
                return text(p, length);
            }
            case PLIST_DATA: {
                const char* p = plist_get_data_ptr(node, &length);
                if (!p && length) return fail("unreadable data");
                const auto* bytes = reinterpret_cast<const std::uint8_t*>(p);
                return charged(PlistValue(PlistData(bytes, bytes + length)), length);
            }
            case PLIST_DATE: {
                std::int32_t seconds = 0, micros = 0;
                plist_get_date_val(node, &seconds, &micros);
                return charged(PlistValue(PlistDate{seconds + micros / 1e6}), 0);
            }
            case PLIST_UID: {
                std::uint64_t v = 0;
                plist_get_uid_val(node, &v);
                return charged(PlistValue(PlistUID{v}), 0);
            }
            case PLIST_ARRAY:
            case PLIST_DICT:
                if (depth > _deepest) _deepest = depth;
                if (depth > Serialization::kMaxDepth)
                    return fail("nested deeper than " + std::to_string(Serialization::kMaxDepth) +
                                " levels");
                return plist_get_node_type(node) == PLIST_ARRAY ? array(node, depth)
                                                                : dictionary(node, depth);
            default:
                return fail("unknown value type");
        }
    }

    const std::string& failure() const { return _failure; }
    int deepest() const { return _deepest; }

  private:
    std::optional<PlistValue> fail(const std::string& why) {
        if (_failure.empty()) _failure = why;
        return std::nullopt;
    }

    std::optional<PlistValue> charged(PlistValue value, std::size_t payload) {
        if (std::string over = _budget.charge(payload); !over.empty()) return fail(over);
        return value;
    }

    std::optional<PlistValue> text(const char* p, std::uint64_t length) {
        if (!p) return fail("unreadable string");
        std::string s(p, length);
        if (!isValidUtf8(s)) return fail("a string is not UTF-8");
        return charged(PlistValue(std::move(s)), length);
    }

    std::optional<PlistValue> array(plist_t node, int depth) {
        if (!charged(PlistValue(), 0)) return std::nullopt;
        PlistArray elements;
        std::uint32_t count = plist_array_get_size(node);
        elements.reserve(std::min<std::uint32_t>(count, 1u << 16));
        for (std::uint32_t i = 0; i < count; ++i) {
            auto element = convert(plist_array_get_item(node, i), depth + 1);
            if (!element) return std::nullopt;
            elements.push_back(std::move(*element));
        }
        return PlistValue(std::move(elements));
    }

    std::optional<PlistValue> dictionary(plist_t node, int depth) {
        if (!charged(PlistValue(), 0)) return std::nullopt;
        PlistDictionary entries;
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        if (!iter) return fail("out of memory");
        std::unique_ptr<void, decltype(&std::free)> iterOwner(iter, &std::free);
        for (std::uint32_t i = 0, n = plist_dict_get_size(node); i < n; ++i) {
            char* rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iter, &rawKey, &item);
            std::unique_ptr<char, decltype(&std::free)> key(rawKey, &std::free);
            if (!key || !item) return fail("unreadable dictionary entry");
            auto keyText = text(key.get(), std::strlen(key.get()));
            auto value = keyText ? convert(item, depth + 1) : std::nullopt;
            if (!value) return std::nullopt;
            entries.insert_or_assign(*keyText->string(), std::move(*value));
        }
        return archiverUID(std::move(entries));
    }

    // The XML form writes a UID as a dictionary with the single integer "CF$UID".
    static PlistValue archiverUID(PlistDictionary entries) {
        if (entries.size() == 1) {
            auto it = entries.find("CF$UID");
            if (it != entries.end() && it->second.isInteger() && it->second.integerValue() >= 0)
                return PlistUID{static_cast<std::uint64_t>(it->second.integerValue())};
        }
        return PlistValue(std::move(entries));
    }

    Budget _budget;
    std::string _failure;
    int _deepest = 0;
};

std::optional<PlistValue> readXml(const PlistData& data, std::string* failure) {
    std::string text(data.begin(), data.end());  // libplist wants a terminated buffer
    int bound = XmlNestingScan(text.data(), text.size()).maximumDepth();
    // One level for the plist element and one for a leaf inside the deepest container.
    if (bound > Serialization::kMaxDepth + 2) {
        *failure = "nested deeper than " + std::to_string(Serialization::kMaxDepth) + " levels";
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    if (!root) {
        *failure = "not a property list in the XML form";
        return std::nullopt;
    }
    PlistPtr owner(root);
    XmlConverter converter;
    auto value = converter.convert(root, 1);
    // A self-closed container adds a level that the scan does not count.
    if (converter.deepest() > bound + 1) {
        log("~~ plist: XML nesting " + std::to_string(converter.deepest()) +
            " above its scanned bound " + std::to_string(bound));
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
        std::abort();
#endif
    }
    if (!value) *failure = converter.failure();
    return value;
}

bool looksLikeXml(const PlistData& data) {
    std::size_t i = 0;
    if (data.size() >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) i = 3;
    while (i < data.size() && data[i] != 0 && std::strchr(" \t\r\n", data[i])) ++i;
    return i < data.size() && data[i] == '<';
}

}  // namespace

std::optional<PlistData> PropertyListSerialization::dataWithPropertyList(const PlistValue& value,
                                                                         PropertyListFormat format,
                                                                         std::uint32_t,
                                                                         ErrorRef* error) {
    auto failed = [&](const std::string& why) -> std::optional<PlistData> {
        if (error) *error = makeError(NSPropertyListWriteInvalidError, why);
        return std::nullopt;
    };
    if (format != NSPropertyListXMLFormat_v1_0 && format != NSPropertyListBinaryFormat_v1_0)
        return failed("property list format " + std::to_string(format) + " cannot be written");
    Writer writer(isArchive(value));
    PlistPtr root = writer.convert(value, 0);
    if (!root) return failed(writer.failure());
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (format == NSPropertyListXMLFormat_v1_0) {
        plist_to_xml(root.get(), &bytes, &length);
    } else {
        plist_to_bin(root.get(), &bytes, &length);
    }
    std::unique_ptr<char, decltype(&std::free)> owner(bytes, &std::free);
    if (!bytes || length == 0) return failed("the property list could not be serialised");
    const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
    return PlistData(begin, begin + length);
}

std::optional<PlistValue> PropertyListSerialization::propertyListWithData(
    const PlistData& data, PropertyListFormat* format, ErrorRef* error) {
    std::string failure;
    std::optional<PlistValue> value;
    PropertyListFormat found = NSPropertyListBinaryFormat_v1_0;
    if (data.size() > kMaxInputBytes) {
        failure = "property list of " + std::to_string(data.size()) + " bytes exceeds the " +
                  std::to_string(kMaxInputBytes) + "-byte limit";
    } else if (BinaryPropertyListReader::looksBinary(data.data(), data.size())) {
        value = BinaryPropertyListReader::read(data.data(), data.size(),
                                               {kMaxObjects, kMaxInputBytes, kMaxDepth}, &failure);
    } else if (looksLikeXml(data)) {
        found = NSPropertyListXMLFormat_v1_0;
        value = readXml(data, &failure);
    } else {
        failure = data.empty() ? "no data" : "not a property list in the XML or binary form";
    }
    if (!value) {
        if (error) *error = makeError(NSPropertyListReadCorruptError, failure);
        return std::nullopt;
    }
    if (format) *format = found;
    return value;
}

}  // namespace platform
