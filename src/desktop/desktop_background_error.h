#pragma once

#include <stdexcept>

namespace lumivesper::desktop {

// Putting a wallpaper on the desktop failed; the message says what to do, for the user.
class DesktopBackgroundError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace lumivesper::desktop
