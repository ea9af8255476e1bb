// The terminal's stand-in for the home screen: it takes the files opened from outside from the
// launch manager and tells them ("External Photo: PATH"). Used by `unwarp home` and by
// `unwarp open` when no other front end runs. Main thread only.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "core/VRLaunchManager.h"

namespace app {

class TerminalHome : public VRLaunchManagerDelegate {
  public:
    explicit TerminalHome(std::ostream& out) : _out(out) {}
    // Tells the file and takes it out of the launch manager, so it is delivered once.
    void launchManagerDidRequestExtenralURL(VRLaunchManager& manager) override;
    const std::vector<std::string>& delivered() const { return _delivered; }
    // A file opened from outside: handed to the launch manager, and taken at once even while
    // a tutorial is due. The terminal has none of the screens the tutorial walks over, and it
    // leaves the tutorial to a front end that has them instead of marking it done.
    void offer(const std::string& path);

  private:
    std::ostream& _out;
    std::vector<std::string> _delivered;
};

// "External " + the media type's name ("Photo", "Video", or "file" for anything else) + ": " +
// the path.
std::string externalItemLine(const std::string& path);

// Makes the terminal home the launch manager's delegate.
std::shared_ptr<TerminalHome> presentTerminalHome(std::ostream& out);

}  // namespace app
