// What one page builds on the server, held on the main thread: the library it browses, the
// assets it picked, the template and adjust state of its session, and its run.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assets/VRAsset.h"
#include "core/VRLaunchChannel.h"
#include "core/VRLaunchController.h"
#include "core/VRLifecycleSignals.h"
#include "core/VRResultController.h"
#include "model/VRAdjustState.h"
#include "platform/PhotoLibrary.h"
#include "templates/VXTemplate.h"

namespace app::web {

class WebServer;
class WebFlows;
class WebAdjust;

class WebSession {
  public:
    explicit WebSession(WebServer& server) : server(server) {}

    WebServer& server;
    std::shared_ptr<platform::PhotoLibrary> library;
    // The run on screen, with the alert it waits on.
    std::shared_ptr<VRResultController> run;
    std::optional<VRBatchAlert> alert;
    std::unique_ptr<VRLifecycleSignals> lifecycle;
    std::uint64_t alertNumber = 0;
    // Assets the page handed in by identifier: library assets by their identifier, files by
    // their resolved path.
    std::map<std::string, VRAssetRef> assets;
    // The launch steps of this start, until they end in the home screen.
    std::unique_ptr<VRLaunchController> launch;
    std::shared_ptr<VRLaunchControllerDelegate> launchDelegate;
    bool launchFinished = false;
    // Where the run's tutorial focus points, while it shows.
    std::optional<VRFocusViewState> focus;
    // The editing walks of the pages, one per browser tab (WebFlow.cpp).
    std::shared_ptr<WebFlows> flows;
    // The summary's adjust session over the picked assets, while the summary is open.
    std::shared_ptr<WebAdjust> adjust;
    // Where `unwarp open` hands its files while the server runs.
    std::unique_ptr<VRLaunchChannel> launchChannel;

    // Opens the library (the `libraryPath` setting, else the pictures folder) when needed;
    // null with the reason when it can't be opened.
    std::shared_ptr<platform::PhotoLibrary> openLibrary(std::string* problem);
    // The asset a page names: "library:ID" or "file:/path" (inside the allowed folders).
    VRAssetRef assetForIdentifier(const std::string& identifier, std::string* problem);
    // The identifier a page uses for an asset.
    static std::string identifierForAsset(const VRAsset& asset);
};

}  // namespace app::web
