// What the program does once at start before it reads anything stored: the unarchiver learns
// the record classes, and archives of the older class name "VRTemplate" decode as VXTemplate.
// The command calls it before running a subcommand.
#pragma once

namespace ApplicationStart {

// Idempotent and thread-safe.
void prepareUnarchiver();

}  // namespace ApplicationStart
