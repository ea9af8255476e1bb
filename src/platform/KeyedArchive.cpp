#include "platform/KeyedArchive.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

#include "platform/KeyedArchiveFormat.h"
#include "platform/PropertyListSerialization.h"

namespace platform {
namespace {

using namespace keyed_archive;

std::vector<std::string> chain(std::initializer_list<const char*> names) {
    return {names.begin(), names.end()};
}

std::vector<std::string> arrayChain(bool isMutable) {
    return isMutable ? chain({"NSMutableArray", "NSArray", "NSObject"})
                     : chain({"NSArray", "NSObject"});
}

std::vector<std::string> dictionaryChain(bool isMutable) {
    return isMutable ? chain({"NSMutableDictionary", "NSDictionary", "NSObject"})
                     : chain({"NSDictionary", "NSObject"});
}

}  // namespace

// ---- ArchiveObject ----------------------------------------------------------------------

ArchiveObject ArchiveObject::string(std::string value) {
    ArchiveObject o;
    o._kind = Kind::String;
    o._className = "NSString";
    o._classes = chain({"NSString", "NSObject"});
    o._value = std::move(value);
    return o;
}

ArchiveObject ArchiveObject::number(PlistValue booleanIntegerOrReal) {
    ArchiveObject o;
    o._kind = Kind::Number;
    o._className = "NSNumber";
    o._classes = chain({"NSNumber", "NSValue", "NSObject"});
    o._value = std::move(booleanIntegerOrReal);
    return o;
}

ArchiveObject ArchiveObject::data(PlistData value) {
    ArchiveObject o;
    o._kind = Kind::Data;
    o._className = "NSData";
    o._classes = chain({"NSData", "NSObject"});
    o._value = std::move(value);
    return o;
}

ArchiveObject ArchiveObject::date(PlistDate value) {
    ArchiveObject o;
    o._kind = Kind::Date;
    o._className = "NSDate";
    o._classes = chain({"NSDate", "NSObject"});
    o._value = value;
    return o;
}

ArchiveObject ArchiveObject::array(std::vector<ArchiveObject> elements, bool isMutable) {
    ArchiveObject o;
    o._kind = Kind::Array;
    o._classes = arrayChain(isMutable);
    o._className = o._classes.front();
    o._mutable = isMutable;
    o._elements = std::move(elements);
    return o;
}

ArchiveObject ArchiveObject::dictionary(
    std::vector<std::pair<ArchiveObject, ArchiveObject>> entries, bool isMutable) {
    ArchiveObject o;
    o._kind = Kind::Dictionary;
    o._classes = dictionaryChain(isMutable);
    o._className = o._classes.front();
    o._mutable = isMutable;
    o._entries = std::move(entries);
    return o;
}

ArchiveObject ArchiveObject::sizeValue(CGSize size) {
    ArchiveObject o;
    o._kind = Kind::SizeValue;
    o._className = "NSValue";
    o._classes = chain({"NSValue", "NSObject"});
    o._size = size;
    return o;
}

ArchiveObject ArchiveObject::instance(std::string className, std::vector<std::string> classes) {
    ArchiveObject o;
    o._kind = Kind::Instance;
    o._classes =
        classes.empty() ? std::vector<std::string>{className, "NSObject"} : std::move(classes);
    o._className = std::move(className);
    return o;
}

namespace {

void putField(std::vector<ArchiveObject::Field>& fields, ArchiveObject::Field field) {
    auto it = std::find_if(fields.begin(), fields.end(),
                           [&](const ArchiveObject::Field& f) { return f.key == field.key; });
    if (it != fields.end()) {
        *it = std::move(field);
    } else {
        fields.push_back(std::move(field));
    }
}

}  // namespace

void ArchiveObject::encodeObject(const std::string& key, ArchiveObject object) {
    putField(_fields, {key, false, {}, std::make_shared<ArchiveObject>(std::move(object))});
}

void ArchiveObject::encodeBool(const std::string& key, bool value) {
    putField(_fields, {key, true, PlistValue(value), nullptr});
}

void ArchiveObject::encodeInteger(const std::string& key, std::int64_t value) {
    putField(_fields, {key, true, PlistValue(value), nullptr});
}

void ArchiveObject::encodeDouble(const std::string& key, double value) {
    putField(_fields, {key, true, PlistValue(value), nullptr});
}

const ArchiveObject::Field* ArchiveObject::_field(const std::string& key) const {
    for (const Field& f : _fields) {
        if (f.key == key) return &f;
    }
    return nullptr;
}

bool ArchiveObject::containsValueForKey(const std::string& key) const {
    return _field(key) != nullptr;
}

const ArchiveObject* ArchiveObject::decodeObjectForKey(const std::string& key) const {
    const Field* f = _field(key);
    if (!f || f->isInline || !f->object || f->object->isNull()) return nullptr;
    return f->object.get();
}

bool ArchiveObject::decodeBoolForKey(const std::string& key) const {
    const Field* f = _field(key);
    return f && f->isInline && f->scalar.boolValue();
}

std::int64_t ArchiveObject::decodeIntegerForKey(const std::string& key) const {
    const Field* f = _field(key);
    return f && f->isInline ? f->scalar.integerValue() : 0;
}

double ArchiveObject::decodeDoubleForKey(const std::string& key) const {
    const Field* f = _field(key);
    return f && f->isInline ? f->scalar.doubleValue() : 0.0;
}

// ---- KeyedArchiver ----------------------------------------------------------------------

namespace {

class ArchiveWriter {
  public:
    std::optional<PlistValue> archive(const ArchiveObject& root) {
        _objects.push_back(PlistValue("$null"));
        auto rootUID = encode(root, 1);
        if (!rootUID) return std::nullopt;
        return PlistValue(PlistDictionary{
            {"$archiver", kArchiverName},
            {"$version", kArchiveVersion},
            {"$top", PlistDictionary{{"root", PlistUID{*rootUID}}}},
            {"$objects", std::move(_objects)},
        });
    }

    const std::string& failure() const { return _failure; }

  private:
    std::optional<std::uint64_t> fail(const std::string& why) {
        if (_failure.empty()) _failure = why;
        return std::nullopt;
    }

    std::uint64_t append(PlistValue value) {
        _objects.push_back(std::move(value));
        return _objects.size() - 1;
    }

    std::optional<std::uint64_t> encode(const ArchiveObject& o, int depth) {
        if (depth > KeyedUnarchiver::kMaxDepth)
            return fail("objects nested deeper than " + std::to_string(KeyedUnarchiver::kMaxDepth));
        if (++_count > KeyedUnarchiver::kMaxObjects)
            return fail("more than " + std::to_string(KeyedUnarchiver::kMaxObjects) + " objects");
        switch (o.kind()) {
            case ArchiveObject::Kind::Null:
                return 0;
            case ArchiveObject::Kind::String:
                if (!o.value().isString()) return fail("an NSString without a string");
                return shared(o.value());
            case ArchiveObject::Kind::Number:
                if (!o.value().isNumber()) return fail("an NSNumber without a number");
                return shared(o.value());
            case ArchiveObject::Kind::Data:
                if (!o.value().isData()) return fail("an NSData without data");
                return append(o.value());
            case ArchiveObject::Kind::Date:
                if (!o.value().isDate()) return fail("an NSDate without a date");
                return object(o, {{"NS.time", o.value().date()->sinceReferenceDate}});
            case ArchiveObject::Kind::SizeValue:
                return object(o, {{"NS.sizeval", NSStringFromCGSize(o.size())},
                                  {"NS.special", kSizeSpecial}});
            case ArchiveObject::Kind::Array:
                return array(o, depth);
            case ArchiveObject::Kind::Dictionary:
                return dictionary(o, depth);
            case ArchiveObject::Kind::Instance:
                return instance(o, depth);
        }
        return fail("an object of unknown kind");
    }

    // Equal strings and numbers share one entry, as the platform's uniqued constants do.
    std::uint64_t shared(const PlistValue& value) {
        double real = value.isReal() ? value.doubleValue() : 0.0;
        std::uint64_t bits;
        std::memcpy(&bits, &real, sizeof bits);
        auto key = std::make_tuple(static_cast<int>(value.type()),
                                   value.string() ? *value.string() : std::string(),
                                   value.isReal() ? 0 : value.integerValue(), bits);
        auto [it, inserted] = _shared.try_emplace(key, 0);
        if (inserted) it->second = append(value);
        return it->second;
    }

    std::uint64_t classUID(const ArchiveObject& o) {
        auto key = std::make_pair(o.className(), o.classes());
        auto [it, inserted] = _classes.try_emplace(key, 0);
        if (inserted) {
            PlistArray names(o.classes().begin(), o.classes().end());
            it->second = append(
                PlistDictionary{{"$classname", o.className()}, {"$classes", std::move(names)}});
        }
        return it->second;
    }

    std::uint64_t object(const ArchiveObject& o, PlistDictionary fields) {
        std::uint64_t uid = append({});
        fields["$class"] = PlistUID{classUID(o)};
        _objects[uid] = std::move(fields);
        return uid;
    }

    std::optional<PlistArray> references(const std::vector<const ArchiveObject*>& list, int depth) {
        PlistArray uids;
        uids.reserve(list.size());
        for (const ArchiveObject* element : list) {
            auto uid = encode(*element, depth + 1);
            if (!uid) return std::nullopt;
            uids.emplace_back(PlistUID{*uid});
        }
        return uids;
    }

    // The container takes its entry first, so that it comes before its contents.
    std::optional<std::uint64_t> array(const ArchiveObject& o, int depth) {
        std::uint64_t uid = append({});
        std::vector<const ArchiveObject*> list;
        for (const ArchiveObject& element : o.elements()) list.push_back(&element);
        auto uids = references(list, depth);
        if (!uids) return std::nullopt;
        _objects[uid] =
            PlistDictionary{{"NS.objects", std::move(*uids)}, {"$class", PlistUID{classUID(o)}}};
        return uid;
    }

    std::optional<std::uint64_t> dictionary(const ArchiveObject& o, int depth) {
        std::uint64_t uid = append({});
        std::vector<const ArchiveObject*> keys, values;
        for (const auto& [key, value] : o.entries()) {
            keys.push_back(&key);
            values.push_back(&value);
        }
        auto keyUIDs = references(keys, depth);
        auto valueUIDs = keyUIDs ? references(values, depth) : std::nullopt;
        if (!valueUIDs) return std::nullopt;
        _objects[uid] = PlistDictionary{{"NS.keys", std::move(*keyUIDs)},
                                        {"NS.objects", std::move(*valueUIDs)},
                                        {"$class", PlistUID{classUID(o)}}};
        return uid;
    }

    std::optional<std::uint64_t> instance(const ArchiveObject& o, int depth) {
        if (o.className().empty()) return fail("an instance without a class name");
        std::uint64_t uid = append({});
        PlistDictionary fields;
        for (const ArchiveObject::Field& field : o.fields()) {
            if (field.isInline) {
                if (!field.scalar.isNumber())
                    return fail("inline value of \"" + field.key + "\" is not a number");
                fields[escapeKey(field.key)] = field.scalar;
                continue;
            }
            auto child =
                field.object ? encode(*field.object, depth + 1) : std::optional<std::uint64_t>(0);
            if (!child) return std::nullopt;
            fields[escapeKey(field.key)] = PlistUID{*child};
        }
        fields["$class"] = PlistUID{classUID(o)};
        _objects[uid] = std::move(fields);
        return uid;
    }

    PlistArray _objects;
    std::size_t _count = 0;
    std::string _failure;
    std::map<std::tuple<int, std::string, std::int64_t, std::uint64_t>, std::uint64_t> _shared;
    std::map<std::pair<std::string, std::vector<std::string>>, std::uint64_t> _classes;
};

}  // namespace

std::optional<PlistData> KeyedArchiver::archivedDataWithRootObject(const ArchiveObject& root,
                                                                   ErrorRef* error) {
    ArchiveWriter writer;
    auto tree = writer.archive(root);
    if (!tree) {
        if (error)
            *error = Error::errorWithDomain(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                                            {{NSDebugDescriptionErrorKey, writer.failure()}});
        return std::nullopt;
    }
    return PropertyListSerialization::dataWithPropertyList(*tree, NSPropertyListBinaryFormat_v1_0,
                                                           0, error);
}

}  // namespace platform
