// One action of the share sheet (save to the albums, export to a folder, mail): the sheet shows
// its title and performs it on the prepared files. A front end that presents the sheet picks
// one and reports the outcome to ExportManager.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Error.h"

class VRShareActivity {
  public:
    // Runs on the main queue: whether the activity finished its work, and its error, if any.
    using Completion = std::function<void(bool completed, platform::ErrorRef error)>;

    virtual ~VRShareActivity() = default;
    virtual std::string activityType() const = 0;
    // The items are known before the title is asked for.
    virtual void prepareWithActivityItems(std::vector<std::string> items) {
        _items = std::move(items);
    }
    virtual std::string activityTitle() const = 0;
    // Works off the main thread; the completion arrives on the main queue.
    virtual void perform(Completion completionOnMainThread) = 0;

    const std::vector<std::string>& items() const { return _items; }

  protected:
    std::vector<std::string> _items;
};
