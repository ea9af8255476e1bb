// Random identifiers in the platform's UUID text form, for sections, stored templates and
// other records that need a fresh identity.
#pragma once

#include <string>

namespace platform {

// A version-4 UUID, upper case: "E621E1F8-C36C-495A-93FC-0C247A3E6E5F". Thread-safe.
std::string UUIDString();

}  // namespace platform
