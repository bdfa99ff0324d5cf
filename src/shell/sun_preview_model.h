#pragma once

#include "platform/observer_list.h"
#include "shell/solar_position_service.h"
#include "sun/time_zone.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::document {
class AppState;
}

namespace lumivesper::shell {

// A coordinate typed by hand: the whole text, without surrounding white space, is one number in
// the C locale ("  40.5 " is 40.5; "40,5" and "40.5°" are no number). No range is checked.
std::optional<double> parseCoordinateText(std::string_view text);

// The sun preview of the inspector: where the sun stands now for the user's place, and which
// image of the document fits best. Only shows; it never changes an image. Main thread only.
class SunPreviewModel {
public:
    using Clock = std::chrono::system_clock;

    // The preview's lines; all numbers with two decimals.
    struct Lines {
        std::string location;             // the place, or how to get one
        std::optional<std::string> sun;   // only with a place where the sun can be computed
        std::optional<std::string> frame; // only where an image has both angles
        std::optional<std::string> error; // only after the location source failed
    };

    SunPreviewModel(
        document::AppState& appState, SolarPositionService& service,
        sun::TimeZone timeZone = sun::TimeZone::current(),
        std::function<Clock::time_point()> now = [] { return Clock::now(); });

    const std::string& manualLatitude() const { return manualLatitude_; }
    const std::string& manualLongitude() const { return manualLongitude_; }
    bool useManualLocation() const { return useManualLocation_; }
    Clock::time_point sampleDate() const { return sampleDate_; }
    void setManualLatitude(std::string text);
    void setManualLongitude(std::string text);
    void setUseManualLocation(bool use);

    // "Use Current Location": asks the location source; not while a request is open.
    bool canRequestLocation() const { return !service_.isUpdating(); }
    void useCurrentLocation();
    // "Refresh": the preview's instant becomes now. It does not tick by itself.
    void refresh();

    // The manual numbers when the switch is on and both parse, else the last fix, else none.
    std::optional<GeoCoordinate> resolvedCoordinate() const;
    // `formatTime` prints the instant as a short clock time in the user's locale.
    Lines lines(const std::function<std::string(Clock::time_point)>& formatTime) const;

    // After a change of anything the lines show: the fields, the location, the images.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    document::AppState& appState_;
    SolarPositionService& service_;
    sun::TimeZone timeZone_;
    std::function<Clock::time_point()> now_;
    std::string manualLatitude_;
    std::string manualLongitude_;
    bool useManualLocation_ = false;
    Clock::time_point sampleDate_;
    platform::ObserverList<> changed_;
    platform::Subscription serviceChanges_;
    platform::Subscription documentChanges_;
};

} // namespace lumivesper::shell
