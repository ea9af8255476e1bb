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

  private:
    std::ostream& _out;
    std::vector<std::string> _delivered;
};

// "External " + the media type's name ("Photo", "Video", or "file" for anything else) + ": " +
// the path.
std::string externalItemLine(const std::string& path);

// Makes the terminal home the launch manager's delegate. The tutorial is a walk over screens
// that the terminal does not have, so a tutorial that is due ends as soon as it starts; it
// would otherwise hold back every external file.
std::shared_ptr<TerminalHome> presentTerminalHome(std::ostream& out);

}  // namespace app
