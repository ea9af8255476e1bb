// The keyed archive: an object graph stored as a binary property list in the keyed
// archiver's form ($archiver "NSKeyedArchiver", $version 100000, $top/root, $objects starting
// with "$null", UID references, class entries with $classname and $classes).
//
// Objects are modelled as ArchiveObject trees. A record that wants to be archived builds an
// instance node, encodes its fields into it in order, and reads them back the same way
// (model/ModelCoding and templates/VXTemplateCoding hold the records that use it).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Error.h"
#include "platform/Geometry.h"
#include "platform/PlistValue.h"

namespace platform {

class ArchiveObject {
  public:
    enum class Kind {
        Null,        // "$null"
        String,      // NSString, stored inline in $objects
        Number,      // NSNumber: boolean, integer or real, stored inline in $objects
        Data,        // NSData
        Date,        // NSDate
        Array,       // NSArray / NSMutableArray (NS.objects)
        Dictionary,  // NSDictionary / NSMutableDictionary (NS.keys, NS.objects); keys are objects
        SizeValue,   // NSValue holding a CGSize (NS.sizeval "{w, h}", NS.special 2)
        Instance,    // any other class: named fields
    };

    // A field of an instance: either a scalar written inline by encodeBool/encodeInteger/
    // encodeDouble, or an object written by reference with encodeObject.
    struct Field {
        std::string key;
        bool isInline = false;
        PlistValue scalar;                      // when inline
        std::shared_ptr<ArchiveObject> object;  // when by reference
    };

    ArchiveObject() = default;  // Null
    static ArchiveObject null() { return {}; }
    static ArchiveObject string(std::string value);
    static ArchiveObject number(PlistValue booleanIntegerOrReal);
    static ArchiveObject data(PlistData value);
    static ArchiveObject date(PlistDate value);
    static ArchiveObject array(std::vector<ArchiveObject> elements, bool isMutable = false);
    static ArchiveObject dictionary(std::vector<std::pair<ArchiveObject, ArchiveObject>> entries,
                                    bool isMutable = false);
    static ArchiveObject sizeValue(CGSize size);
    // `classes` is the class chain written in $classes, most derived first; empty means
    // {className, "NSObject"}.
    static ArchiveObject instance(std::string className, std::vector<std::string> classes = {});

    Kind kind() const { return _kind; }
    bool isNull() const { return _kind == Kind::Null; }
    // The class name as written in the archive (for instances, after the unarchiver's class
    // mapping).
    const std::string& className() const { return _className; }
    const std::vector<std::string>& classes() const { return _classes; }
    bool isMutable() const { return _mutable; }

    // Scalar payloads: string, number, data, date. Null for other kinds.
    const PlistValue& value() const { return _value; }
    CGSize size() const { return _size; }
    const std::vector<ArchiveObject>& elements() const { return _elements; }
    const std::vector<std::pair<ArchiveObject, ArchiveObject>>& entries() const { return _entries; }

    // Instances: encoding, in the order the fields are to appear.
    void encodeObject(const std::string& key, ArchiveObject object);
    void encodeBool(const std::string& key, bool value);
    void encodeInteger(const std::string& key, std::int64_t value);
    void encodeDouble(const std::string& key, double value);

    // Instances: decoding. Absent keys give null, false, 0 and 0.0 as the platform's coder
    // does; an inline scalar of another number type converts.
    bool containsValueForKey(const std::string& key) const;
    const ArchiveObject* decodeObjectForKey(const std::string& key) const;
    bool decodeBoolForKey(const std::string& key) const;
    std::int64_t decodeIntegerForKey(const std::string& key) const;
    double decodeDoubleForKey(const std::string& key) const;
    const std::vector<Field>& fields() const { return _fields; }

  private:
    const Field* _field(const std::string& key) const;

    Kind _kind = Kind::Null;
    std::string _className;
    std::vector<std::string> _classes;
    bool _mutable = false;
    PlistValue _value;
    CGSize _size;
    std::vector<ArchiveObject> _elements;
    std::vector<std::pair<ArchiveObject, ArchiveObject>> _entries;
    std::vector<Field> _fields;
};

class KeyedArchiver {
  public:
    // The archive of `root` under the key "root" of $top, as a binary property list.
    static std::optional<PlistData> archivedDataWithRootObject(const ArchiveObject& root,
                                                               ErrorRef* error = nullptr);
};

class KeyedUnarchiver {
  public:
    // Limits on what a hostile archive can make us build.
    static constexpr std::size_t kMaxObjects = 1'000'000;  // decoded nodes in all
    static constexpr int kMaxDepth = 256;                  // nesting of references

    // Process-wide: instances archived under `archivedName` decode with the class name
    // `className` ("VRTemplate" decodes as "VXTemplate").
    static void setClassForClassName(const std::string& className, const std::string& archivedName);
    // Process-wide: instance class names that may be decoded, as the runtime knows its
    // classes. The Foundation classes of ArchiveObject::Kind are always known.
    static void registerClassName(const std::string& className);

    // Decodes the root object. A malformed archive (not a property list, wrong $archiver or
    // $version, missing $top/root, a UID out of range, a reference cycle, wrong types,
    // counts beyond the input, more than kMaxObjects nodes, an unknown class) gives
    // NSCocoaErrorDomain / NSCoderReadCorruptError, never a crash.
    static std::optional<ArchiveObject> unarchiveObjectWithData(const PlistData& data,
                                                                ErrorRef* error = nullptr);
};

}  // namespace platform
