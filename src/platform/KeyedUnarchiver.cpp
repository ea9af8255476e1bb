// The unarchiving half of the keyed archive: the class mapping, and the checked reading of an
// archive's object table back into an ArchiveObject tree.
#include <algorithm>
#include <map>
#include <mutex>
#include <set>

#include "platform/KeyedArchive.h"
#include "platform/KeyedArchiveFormat.h"
#include "platform/PropertyListSerialization.h"

namespace platform {
namespace {

using namespace keyed_archive;

struct ClassTable {
    std::mutex lock;
    std::map<std::string, std::string> classForArchivedName;
    std::set<std::string> known;
};

ClassTable& classTable() {
    static ClassTable table;
    return table;
}

// The shape of one entry of $objects, checked: what it decodes to and which entries it refers to.
struct Shape {
    ArchiveObject::Kind kind = ArchiveObject::Kind::Null;
    const PlistValue* entry = nullptr;
    std::string className;  // after the class mapping
    std::vector<std::string> classes;
    bool isMutable = false;
    std::vector<std::uint64_t> references;
};

class ArchiveReader {
  public:
    ArchiveReader(std::map<std::string, std::string> mapping, std::set<std::string> known)
        : _mapping(std::move(mapping)), _known(std::move(known)) {}

    std::optional<ArchiveObject> read(const PlistValue& archive) {
        auto root = checkTop(archive);
        if (!root) return std::nullopt;
        _measures.assign(_objects->size(), Measure{});
        if (!measure(*root, 1)) return std::nullopt;
        return build(*root);
    }

    const std::string& failure() const { return _failure; }

  private:
    struct Measure {
        std::size_t nodes = 0;
        int height = 0;
        std::uint8_t state = 0;  // 0 not seen, 1 on the current path, 2 measured
    };

    bool fail(const std::string& why) {
        if (_failure.empty()) _failure = why;
        return false;
    }

    std::optional<std::uint64_t> checkTop(const PlistValue& archive) {
        const PlistValue& archiver = archive["$archiver"];
        if (!archive.isDictionary()) return fail("the archive is not a dictionary"), std::nullopt;
        if (!archiver.string() || *archiver.string() != kArchiverName)
            return fail("$archiver is not \"NSKeyedArchiver\""), std::nullopt;
        const PlistValue& version = archive["$version"];
        if (!version.isInteger() || version.integerValue() != kArchiveVersion)
            return fail("$version is not 100000"), std::nullopt;
        auto root = archive["$top"]["root"].uid();
        if (!root) return fail("$top has no root reference"), std::nullopt;
        _objects = archive["$objects"].array();
        if (!_objects || _objects->empty()) return fail("$objects is missing"), std::nullopt;
        const std::string* null = (*_objects)[0].string();
        if (!null || *null != "$null")
            return fail("$objects does not start with \"$null\""), std::nullopt;
        return root->value;
    }

    std::string at(std::uint64_t uid) const { return " (object " + std::to_string(uid) + ")"; }

    bool uidList(const PlistValue& list, const char* key, std::uint64_t uid,
                 std::vector<std::uint64_t>* out) {
        const PlistArray* items = list.array();
        if (!items) return fail(std::string(key) + " is not an array" + at(uid));
        for (const PlistValue& item : *items) {
            auto ref = item.uid();
            if (!ref) return fail(std::string(key) + " holds a non-reference" + at(uid));
            out->push_back(ref->value);
        }
        return true;
    }

    bool classOf(const PlistDictionary& fields, std::uint64_t uid, Shape* shape) {
        auto it = fields.find("$class");
        auto ref = it == fields.end() ? std::nullopt : it->second.uid();
        if (!ref) return fail("object without a $class reference" + at(uid));
        if (ref->value == 0 || ref->value >= _objects->size())
            return fail("$class reference " + std::to_string(ref->value) + " out of range" +
                        at(uid));
        const PlistValue& entry = (*_objects)[ref->value];
        const std::string* name = entry["$classname"].string();
        if (!name) return fail("class entry without $classname" + at(ref->value));
        if (const PlistValue& chain = entry["$classes"]; !chain.isNull()) {
            if (!chain.array()) return fail("$classes is not an array" + at(ref->value));
            for (const PlistValue& c : *chain.array()) {
                if (!c.string()) return fail("$classes holds a non-string" + at(ref->value));
                shape->classes.push_back(*c.string());
            }
        }
        shape->className = *name;
        return true;
    }

    // Nothing when the class is none of the Foundation classes kept in ArchiveObject::Kind.
    std::optional<bool> foundationShape(std::uint64_t uid, Shape* shape) {
        const PlistValue& o = *shape->entry;
        const std::string& name = shape->className;
        using Kind = ArchiveObject::Kind;
        if (name == "NSArray" || name == "NSMutableArray") {
            shape->kind = Kind::Array;
            shape->isMutable = name == "NSMutableArray";
            return uidList(o["NS.objects"], "NS.objects", uid, &shape->references);
        }
        if (name == "NSDictionary" || name == "NSMutableDictionary") {
            shape->kind = Kind::Dictionary;
            shape->isMutable = name == "NSMutableDictionary";
            if (!uidList(o["NS.keys"], "NS.keys", uid, &shape->references) ||
                !uidList(o["NS.objects"], "NS.objects", uid, &shape->references))
                return false;
            if (o["NS.keys"].array()->size() != o["NS.objects"].array()->size())
                return fail("NS.keys and NS.objects differ in length" + at(uid));
            return true;
        }
        if (name == "NSString" || name == "NSMutableString") {
            shape->kind = Kind::String;
            return o["NS.string"].isString() || fail("NS.string is not a string" + at(uid));
        }
        if (name == "NSData" || name == "NSMutableData") {
            shape->kind = Kind::Data;
            return o["NS.data"].isData() || fail("NS.data is not data" + at(uid));
        }
        if (name == "NSDate") {
            shape->kind = Kind::Date;
            return (o["NS.time"].isReal() || o["NS.time"].isInteger()) ||
                   fail("NS.time is not a number" + at(uid));
        }
        if (name == "NSValue") {
            shape->kind = Kind::SizeValue;
            if (!o["NS.special"].isInteger() || o["NS.special"].integerValue() != kSizeSpecial)
                return fail("NSValue of an unsupported type" + at(uid));
            return o["NS.sizeval"].isString() || fail("NS.sizeval is not a string" + at(uid));
        }
        return std::nullopt;
    }

    bool instanceShape(const PlistDictionary& fields, std::uint64_t uid, Shape* shape) {
        auto mapped = _mapping.find(shape->className);
        if (mapped != _mapping.end()) shape->className = mapped->second;
        if (!_known.count(shape->className))
            return fail("cannot decode object of class (" + shape->className + ")" + at(uid));
        shape->kind = ArchiveObject::Kind::Instance;
        for (const auto& [key, value] : fields) {
            if (key == "$class") continue;
            if (auto ref = value.uid()) {
                shape->references.push_back(ref->value);
            } else if (!value.isNumber()) {
                return fail("value for key \"" + key + "\" has a wrong type" + at(uid));
            }
        }
        return true;
    }

    std::optional<Shape> shapeOf(std::uint64_t uid) {
        if (uid >= _objects->size())
            return fail("reference " + std::to_string(uid) + " out of range (" +
                        std::to_string(_objects->size()) + " objects)"),
                   std::nullopt;
        Shape shape;
        shape.entry = &(*_objects)[uid];
        using Type = PlistValue::Type;
        using Kind = ArchiveObject::Kind;
        switch (uid == 0 ? Type::Null : shape.entry->type()) {
            case Type::Null:
                return shape;
            case Type::String:
                shape.kind = Kind::String;
                return shape;
            case Type::Boolean:
            case Type::Integer:
            case Type::Real:
                shape.kind = Kind::Number;
                return shape;
            case Type::Data:
                shape.kind = Kind::Data;
                return shape;
            case Type::Date:
                shape.kind = Kind::Date;
                return shape;
            case Type::Dictionary:
                break;
            default:
                return fail("object of a wrong type" + at(uid)), std::nullopt;
        }
        const PlistDictionary& fields = *shape.entry->dictionary();
        if (!classOf(fields, uid, &shape)) return std::nullopt;
        std::optional<bool> foundation = foundationShape(uid, &shape);
        bool good = foundation ? *foundation : instanceShape(fields, uid, &shape);
        if (!good) return std::nullopt;
        return shape;
    }

    // Sizes each object once, so that an archive referring to one object many times is refused
    // by its expanded size before anything is built.
    bool measure(std::uint64_t uid, int depth) {
        if (uid >= _measures.size())
            return fail("reference " + std::to_string(uid) + " out of range (" +
                        std::to_string(_measures.size()) + " objects)");
        Measure& m = _measures[uid];
        if (m.state == 1) return fail("reference cycle" + at(uid));
        if (depth - 1 + std::max(m.height, 1) > KeyedUnarchiver::kMaxDepth)
            return fail("objects nested deeper than " + std::to_string(KeyedUnarchiver::kMaxDepth));
        if (m.state == 2) return true;
        auto shape = shapeOf(uid);
        if (!shape) return false;
        m.state = 1;
        std::size_t nodes = 1;
        int height = 1;
        for (std::uint64_t child : shape->references) {
            if (child == 0) {
                ++nodes;
                continue;
            }
            if (!measure(child, depth + 1)) return false;
            nodes = std::min(nodes + _measures[child].nodes, KeyedUnarchiver::kMaxObjects + 1);
            height = std::max(height, _measures[child].height + 1);
        }
        if (nodes > KeyedUnarchiver::kMaxObjects)
            return fail("more than " + std::to_string(KeyedUnarchiver::kMaxObjects) +
                        " objects once expanded");
        m = {nodes, height, 2};
        return true;
    }

    ArchiveObject build(std::uint64_t uid) {
        Shape shape = *shapeOf(uid);
        const PlistValue& o = *shape.entry;
        using Kind = ArchiveObject::Kind;
        switch (shape.kind) {
            case Kind::Null:
                return ArchiveObject::null();
            case Kind::String:
                return ArchiveObject::string(o.string() ? *o.string() : *o["NS.string"].string());
            case Kind::Number:
                return ArchiveObject::number(o);
            case Kind::Data:
                return ArchiveObject::data(o.data() ? *o.data() : *o["NS.data"].data());
            case Kind::Date:
                return ArchiveObject::date(o.date() ? *o.date()
                                                    : PlistDate{o["NS.time"].doubleValue()});
            case Kind::SizeValue:
                return ArchiveObject::sizeValue(CGSizeFromString(*o["NS.sizeval"].string()));
            case Kind::Array: {
                std::vector<ArchiveObject> elements;
                elements.reserve(shape.references.size());
                for (std::uint64_t ref : shape.references) elements.push_back(build(ref));
                return ArchiveObject::array(std::move(elements), shape.isMutable);
            }
            case Kind::Dictionary: {
                std::size_t half = shape.references.size() / 2;
                std::vector<std::pair<ArchiveObject, ArchiveObject>> entries;
                entries.reserve(half);
                for (std::size_t i = 0; i < half; ++i)
                    entries.emplace_back(build(shape.references[i]),
                                         build(shape.references[half + i]));
                return ArchiveObject::dictionary(std::move(entries), shape.isMutable);
            }
            case Kind::Instance:
                return instance(shape);
        }
        return ArchiveObject::null();
    }

    ArchiveObject instance(const Shape& shape) {
        ArchiveObject object = ArchiveObject::instance(shape.className, shape.classes);
        for (const auto& [key, value] : *shape.entry->dictionary()) {
            if (key == "$class") continue;
            std::string name = unescapeKey(key);
            if (auto ref = value.uid()) {
                object.encodeObject(name, build(ref->value));
            } else if (value.isBoolean()) {
                object.encodeBool(name, value.boolValue());
            } else if (value.isInteger()) {
                object.encodeInteger(name, value.integerValue());
            } else {
                object.encodeDouble(name, value.doubleValue());
            }
        }
        return object;
    }

    std::map<std::string, std::string> _mapping;
    std::set<std::string> _known;
    const PlistArray* _objects = nullptr;
    std::vector<Measure> _measures;
    std::string _failure;
};

ErrorRef corruptArchive(const std::string& why, ErrorRef underlying = nullptr) {
    std::map<std::string, std::vector<ErrorRef>> errorInfo;
    if (underlying) errorInfo[NSUnderlyingErrorKey] = {underlying};
    return std::make_shared<Error>(NSCocoaErrorDomain, NSCoderReadCorruptError,
                                   PlistDictionary{{NSDebugDescriptionErrorKey, why}},
                                   std::move(errorInfo));
}

}  // namespace

void KeyedUnarchiver::setClassForClassName(const std::string& className,
                                           const std::string& archivedName) {
    ClassTable& table = classTable();
    std::lock_guard guard(table.lock);
    table.classForArchivedName[archivedName] = className;
}

void KeyedUnarchiver::registerClassName(const std::string& className) {
    ClassTable& table = classTable();
    std::lock_guard guard(table.lock);
    table.known.insert(className);
}

std::optional<ArchiveObject> KeyedUnarchiver::unarchiveObjectWithData(const PlistData& data,
                                                                      ErrorRef* error) {
    ErrorRef plistError;
    auto tree = PropertyListSerialization::propertyListWithData(data, nullptr, &plistError);
    if (!tree) {
        if (error) *error = corruptArchive("the archive is not a property list", plistError);
        return std::nullopt;
    }
    std::map<std::string, std::string> mapping;
    std::set<std::string> known;
    {
        ClassTable& table = classTable();
        std::lock_guard guard(table.lock);
        mapping = table.classForArchivedName;
        known = table.known;
    }
    ArchiveReader reader(std::move(mapping), std::move(known));
    auto root = reader.read(*tree);
    if (!root && error) *error = corruptArchive(reader.failure());
    return root;
}

}  // namespace platform
