// Feeds arbitrary bytes to the property-list reader; whatever it accepts must write in both
// forms (or be refused with an error) and read back, the binary form unchanged.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "platform/PropertyListSerialization.h"

using namespace platform;

namespace {

// The binary form keeps values exactly, but NaN is unequal to itself and libplist holds dates
// in microseconds.
bool same(const PlistValue& a, const PlistValue& b) {
    if (a.type() != b.type()) return false;
    if (a.isReal()) {
        double x = a.doubleValue(), y = b.doubleValue();
        return (std::isnan(x) && std::isnan(y)) || x == y;
    }
    if (a.isDate()) {
        double x = a.date()->sinceReferenceDate, y = b.date()->sinceReferenceDate;
        return std::fabs(x - y) <= 1e-6 + 1e-15 * std::fabs(x);
    }
    if (a.isArray()) {
        if (a.array()->size() != b.array()->size()) return false;
        for (std::size_t i = 0; i < a.array()->size(); ++i)
            if (!same((*a.array())[i], (*b.array())[i])) return false;
        return true;
    }
    if (a.isDictionary()) {
        if (a.dictionary()->size() != b.dictionary()->size()) return false;
        for (const auto& [key, value] : *a.dictionary())
            if (!b.dictionary()->count(key) || !same(value, b[key])) return false;
        return true;
    }
    return a == b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PlistData bytes(data, data + size);
    PropertyListFormat format{};
    ErrorRef error;
    auto value = PropertyListSerialization::propertyListWithData(bytes, &format, &error);
    if (!value) {
        if (!error || error->code() != NSPropertyListReadCorruptError) std::abort();
        return 0;
    }
    if (format != NSPropertyListXMLFormat_v1_0 && format != NSPropertyListBinaryFormat_v1_0)
        std::abort();
    for (PropertyListFormat out : {NSPropertyListXMLFormat_v1_0, NSPropertyListBinaryFormat_v1_0}) {
        ErrorRef writeError;
        auto written = PropertyListSerialization::dataWithPropertyList(*value, out, 0, &writeError);
        if (!written) {
            if (!writeError || writeError->code() != NSPropertyListWriteInvalidError) std::abort();
            continue;
        }
        auto again = PropertyListSerialization::propertyListWithData(*written);
        if (!again) std::abort();
        if (out == NSPropertyListBinaryFormat_v1_0 && !same(*value, *again)) std::abort();
    }
    return 0;
}
