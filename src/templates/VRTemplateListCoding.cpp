#include "templates/VRTemplateListCoding.h"

#include <limits>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace VRTemplateListCoding {

namespace {

struct DecodeFailure {
    std::string reason;
};

platform::ErrorRef corrupt(const std::string& reason) {
    return platform::Error::errorWithDomain(
        platform::NSCocoaErrorDomain, platform::NSFileReadCorruptFileError,
        {{platform::NSDebugDescriptionErrorKey, "template list: " + reason}});
}

json encodeImageSource(const TemplatePictureSource& source) {
    switch (source.kind()) {
        case TemplatePictureSource::Kind::bundle:
            return {{"bundle", {{"_0", source.bundleName()}}}};
        case TemplatePictureSource::Kind::templateIdentifier:
            return {{"templateIdentifier", json::object()}};
        case TemplatePictureSource::Kind::empty:
            break;
    }
    return {{"empty", json::object()}};
}

json encodeItem(const VRTemplateListItem& item) {
    json object = json::object();
    object["identifier"] = item.identifier();
    if (item.title()) object["title"] = *item.title();
    if (item.description()) object["description"] = *item.description();
    object["mediaTypes"] = item.mediaTypes();
    object["imageSource"] = encodeImageSource(item.imageSource());
    object["iconSource"] = encodeImageSource(item.iconSource());
    object["subtitles"] = item.subtitles();
    object["keywords"] = item.keywords();
    return object;
}

const json& member(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end()) throw DecodeFailure{std::string("missing \"") + key + "\""};
    return *it;
}

std::string decodeString(const json& value, const char* what) {
    if (!value.is_string()) throw DecodeFailure{std::string(what) + " is not a string"};
    return value.get<std::string>();
}

std::optional<std::string> decodeOptionalString(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return decodeString(*it, key);
}

std::vector<std::string> decodeStringArray(const json& value, const char* what) {
    if (!value.is_array()) throw DecodeFailure{std::string(what) + " is not an array"};
    std::vector<std::string> strings;
    strings.reserve(value.size());
    for (const auto& element : value) strings.push_back(decodeString(element, what));
    return strings;
}

std::set<std::uint64_t> decodeMediaTypes(const json& value) {
    if (!value.is_array()) throw DecodeFailure{"mediaTypes is not an array"};
    std::set<std::uint64_t> types;
    for (const auto& element : value) {
        if (!element.is_number_unsigned() ||
            element.get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
            throw DecodeFailure{"mediaTypes holds something other than a media type"};
        }
        types.insert(element.get<std::uint64_t>());
    }
    return types;
}

// An enumeration case is an object with exactly one key naming it.
TemplatePictureSource decodeImageSource(const json& value, const char* what) {
    if (!value.is_object() || value.size() != 1) {
        throw DecodeFailure{std::string(what) + " is not one enumeration case"};
    }
    const auto entry = value.begin();
    const std::string& name = entry.key();
    const json& payload = entry.value();
    if (!payload.is_object()) throw DecodeFailure{std::string(what) + " has no payload object"};
    if (name == "bundle")
        return TemplatePictureSource::bundle(decodeString(member(payload, "_0"), what));
    if (name == "empty") return TemplatePictureSource::empty();
    if (name == "templateIdentifier") return TemplatePictureSource::templateIdentifier();
    throw DecodeFailure{std::string(what) + " has the unknown case \"" + name + "\""};
}

VRTemplateListItem decodeItem(const json& object) {
    if (!object.is_object()) throw DecodeFailure{"an item is not an object"};
    return VRTemplateListItem::withStoredFields(
        decodeString(member(object, "identifier"), "identifier"),
        decodeOptionalString(object, "title"), decodeOptionalString(object, "description"),
        decodeMediaTypes(member(object, "mediaTypes")),
        decodeImageSource(member(object, "imageSource"), "imageSource"),
        decodeImageSource(member(object, "iconSource"), "iconSource"),
        decodeStringArray(member(object, "subtitles"), "subtitles"),
        decodeStringArray(member(object, "keywords"), "keywords"));
}

// Deepest nesting of arrays and objects, outside strings; parsing a hostile file stays bounded.
int nestingDepth(const platform::PlistData& data) {
    int depth = 0, deepest = 0;
    bool inString = false, escaped = false;
    for (auto byte : data) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (byte == '\\') {
                escaped = true;
            } else if (byte == '"') {
                inString = false;
            }
        } else if (byte == '"') {
            inString = true;
        } else if (byte == '[' || byte == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (byte == ']' || byte == '}') {
            --depth;
        }
    }
    return deepest;
}

std::optional<json> parse(const platform::PlistData& data, platform::ErrorRef* error) {
    if (data.size() > kMaxFileBytes) {
        if (error) *error = corrupt("file larger than " + std::to_string(kMaxFileBytes) + " bytes");
        return std::nullopt;
    }
    if (nestingDepth(data) > kMaxNesting) {
        if (error) *error = corrupt("nested deeper than " + std::to_string(kMaxNesting));
        return std::nullopt;
    }
    json value = json::parse(data.begin(), data.end(), nullptr, false);
    if (value.is_discarded()) {
        if (error) *error = corrupt("not JSON");
        return std::nullopt;
    }
    if (!value.is_array()) {
        if (error) *error = corrupt("not an array");
        return std::nullopt;
    }
    return value;
}

// Invalid UTF-8 from outside (a title typed on a terminal) is replaced, never thrown on.
std::string jsonText(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

platform::PlistData bytes(const json& value) {
    auto text = jsonText(value);
    return platform::PlistData(text.begin(), text.end());
}

}  // namespace

platform::PlistData encodeItems(const std::vector<VRTemplateListItem>& items) {
    json array = json::array();
    for (const auto& item : items) array.push_back(encodeItem(item));
    return bytes(array);
}

std::optional<std::vector<VRTemplateListItem>> decodeItems(const platform::PlistData& data,
                                                           platform::ErrorRef* error) {
    auto value = parse(data, error);
    if (!value) return std::nullopt;
    std::vector<VRTemplateListItem> items;
    try {
        for (const auto& element : *value) items.push_back(decodeItem(element));
    } catch (const DecodeFailure& failure) {
        if (error) *error = corrupt(failure.reason);
        return std::nullopt;
    }
    return items;
}

platform::PlistData encodeStrings(const std::vector<std::string>& strings) {
    return bytes(json(strings));
}

std::optional<std::vector<std::string>> decodeStrings(const platform::PlistData& data,
                                                      platform::ErrorRef* error) {
    auto value = parse(data, error);
    if (!value) return std::nullopt;
    try {
        return decodeStringArray(*value, "a key");
    } catch (const DecodeFailure& failure) {
        if (error) *error = corrupt(failure.reason);
        return std::nullopt;
    }
}

std::string itemJSON(const VRTemplateListItem& item) {
    return jsonText(encodeItem(item));
}

}  // namespace VRTemplateListCoding
