// A value that names one asset without holding it: the kind of source, the kind's own key and
// a free marker. Archived as three strings so that selections survive in settings and results.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/PlistValue.h"

enum VRAssetIdentifierType : std::uint64_t {
    VRAssetIdentifierTypeLibrary = 1,  // PHAsset: its localIdentifier
    VRAssetIdentifierTypeURL = 2,      // VRURLAsset: the file's absolute path
    VRAssetIdentifierTypeData = 3,     // VRDataAsset: an ID derived from the bytes
    VRAssetIdentifierTypeLocal = 4,    // VRLocalAsset: its identifier
    VRAssetIdentifierTypeFile = 5,     // VRFileAsset: its identifier
};

// Archive keys, and the stand-in for the documents directory inside a URL asset's path.
inline constexpr const char* VRAssetIdentifierObjectIdentifierKey = "ObjectIdentifierKey";
inline constexpr const char* VRAssetIdentifierTypeKey = "TypeKey";
inline constexpr const char* VRAssetIdentifierFlagKey = "FlagKey";
inline constexpr const char* VRAssetIdentifierDocumentDirPlaceholder = "__vrdocumentdir__";

class VRAssetIdentifier {
  public:
    VRAssetIdentifier() = default;
    VRAssetIdentifier(std::string objectIdentifier, std::uint64_t type, std::uint64_t flag = 0)
        : _objectIdentifier(std::move(objectIdentifier)), _type(type), _flag(flag) {}
    virtual ~VRAssetIdentifier() = default;

    const std::string& objectIdentifier() const { return _objectIdentifier; }
    std::uint64_t type() const { return _type; }
    // Set by the list that produced the asset (2 marks an unsaved item); not part of equality.
    std::uint64_t flag() const { return _flag; }
    void setFlag(std::uint64_t flag) { _flag = flag; }

    // ObjectIdentifierKey, TypeKey and FlagKey as strings, the numbers in decimal. For type 2
    // the documents directory in the path becomes "__vrdocumentdir__", since it changes
    // between installations.
    platform::PlistDictionary identifierArchive() const;
    // The reverse, with the current documents directory put back. All three keys must be
    // strings and the numbers decimal; otherwise it logs "VRAssetIdentifier: wrong archive
    // data %@" and gives nothing.
    static std::optional<VRAssetIdentifier> assetIdentifierFromArchive(
        const platform::PlistDictionary& archive);

    // Same type and object identifier.
    bool isEqualToIdentifier(const VRAssetIdentifier& other) const {
        return _type == other._type && _objectIdentifier == other._objectIdentifier;
    }

  protected:
    std::string _objectIdentifier;
    std::uint64_t _type = 0;
    std::uint64_t _flag = 0;
};
