// The share sheet's action that opens the user's mail program with the shared files attached
// (through `xdg-email --attach`). The sending is handed in by the front end, which alone starts
// other programs; the activity is offered only when that is possible.
#pragma once

#include "platform/Dispatch.h"
#include "results/VRShareActivity.h"

class VRMailActivity : public VRShareActivity {
  public:
    // Hands the files to the mail program; null on success.
    using Sender = std::function<platform::ErrorRef(const std::vector<std::string>& attachments)>;
    static constexpr const char* kActivityType = "com.vorela.unwarp.mail";

    explicit VRMailActivity(Sender sender) : _sender(std::move(sender)) {}
    std::string activityType() const override { return kActivityType; }
    std::string activityTitle() const override { return "Mail"; }
    void perform(Completion completionOnMainThread) override {
        platform::DispatchQueue::global().async(
            [items = _items, sender = _sender, completion = std::move(completionOnMainThread)] {
                platform::ErrorRef error = sender(items);
                platform::DispatchQueue::main().async([error, completion] {
                    if (completion) completion(!error, error);
                });
            });
    }

  private:
    Sender _sender;
};
