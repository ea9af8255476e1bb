// The share sheet's action that puts the shared files into a folder the user chose, the Linux
// stand-in for handing them to another program. Nothing there is ever replaced: a taken name
// moves on to "<stem>-1.<extension>", "<stem>-2.<extension>", and so on.
#pragma once

#include "results/VRShareActivity.h"

class VRFolderExportActivity : public VRShareActivity {
  public:
    static constexpr const char* kActivityType = "com.vorela.unwarp.export-to-folder";

    std::string activityType() const override { return kActivityType; }
    std::string activityTitle() const override { return "Export to Folder"; }
    // The folder, chosen by the front end before perform; made when missing.
    void setDestination(std::string folder) { _destination = std::move(folder); }
    // Links each item into the folder (a copy across file systems), each name claimed
    // atomically so that two processes never take one. Stops at the first failure, leaving
    // the files written before it.
    void perform(Completion completionOnMainThread) override;

    // The files written, in the order of the items.
    const std::vector<std::string>& exportedURLs() const { return _exported; }

    // Links or copies `item` into `folder` under its own name or the next free one; the path
    // written, or absent with `error`.
    static std::optional<std::string> exportItem(const std::string& item, const std::string& folder,
                                                 platform::ErrorRef* error);

  private:
    std::string _destination;
    std::vector<std::string> _exported;
};
