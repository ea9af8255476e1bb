// What the program does once at start before it reads anything stored: the unarchiver learns
// the record classes, and archives of the older class name "VRTemplate" decode as VXTemplate;
// and the clean-ups of temporary files. The command calls both before running a subcommand.
#pragma once

namespace ApplicationStart {

// Idempotent and thread-safe.
void prepareUnarchiver();

// The clean-ups of every start: _removeTempImages (skipped while a file is being opened, whose
// copy lies there), _removeTempVideos, the one-time _removeCachedVidFilesFromV2XX, the
// temporary import and camera assets, and the temporary files of processes that have ended.
// Entries that belong to a process still running are kept. Runs on the calling thread, so
// that a short command finds the home clean; failures are logged and absorbed.
void removeTemporaryFiles(bool openingFile = false);

// The parts, for the clean-ups at other events.
void _removeTempImages();
void _removeTempVideos();
void _removeCachedVidFilesFromV2XX();

}  // namespace ApplicationStart
