#include "shell/sun_preview_model.h"

#include "document/app_state.h"
#include "document/timeline.h"
#include "sun/solar_position.h"

#include <charconv>
#include <cmath>

namespace lumivesper::shell {

namespace {

bool isWhiteSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// Two decimals, whatever the process's locale says about the decimal separator.
std::string twoDecimals(double value) {
    char text[400]; // room for the longest fixed rendering of a finite double
    const auto [end, error] =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 2);
    if (error != std::errc())
        return "?";
    return std::string(text, end);
}

} // namespace

std::optional<double> parseCoordinateText(std::string_view text) {
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isWhiteSpace(text.back()))
        text.remove_suffix(1);
    // from_chars takes a minus sign but not a plus sign; a number may have either.
    if (text.size() > 1 && text.front() == '+' && text[1] != '-')
        text.remove_prefix(1);
    if (text.empty())
        return std::nullopt;
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

SunPreviewModel::SunPreviewModel(document::AppState& appState, SolarPositionService& service,
                                 sun::TimeZone timeZone, std::function<Clock::time_point()> now)
    : appState_(appState), service_(service), timeZone_(timeZone), now_(std::move(now)),
      sampleDate_(now_()) {
    serviceChanges_ = service_.observe([this] { changed_.notify(); });
    documentChanges_ = appState_.observe([this](document::AppStateFields fields) {
        if (fields.contains(document::AppStateField::images))
            changed_.notify();
    });
}

void SunPreviewModel::setManualLatitude(std::string text) {
    if (text == manualLatitude_)
        return;
    manualLatitude_ = std::move(text);
    changed_.notify();
}

void SunPreviewModel::setManualLongitude(std::string text) {
    if (text == manualLongitude_)
        return;
    manualLongitude_ = std::move(text);
    changed_.notify();
}

void SunPreviewModel::setUseManualLocation(bool use) {
    if (use == useManualLocation_)
        return;
    useManualLocation_ = use;
    changed_.notify();
}

void SunPreviewModel::useCurrentLocation() {
    if (canRequestLocation())
        service_.requestCurrentLocation();
}

void SunPreviewModel::refresh() {
    sampleDate_ = now_();
    changed_.notify();
}

std::optional<GeoCoordinate> SunPreviewModel::resolvedCoordinate() const {
    if (useManualLocation_) {
        const auto latitude = parseCoordinateText(manualLatitude_);
        const auto longitude = parseCoordinateText(manualLongitude_);
        if (latitude && longitude)
            return GeoCoordinate{*latitude, *longitude};
    }
    return service_.lastLocation();
}

SunPreviewModel::Lines
SunPreviewModel::lines(const std::function<std::string(Clock::time_point)>& formatTime) const {
    Lines result;
    if (service_.errorMessage())
        result.error = "Location error: " + *service_.errorMessage();
    const auto coordinate = resolvedCoordinate();
    if (!coordinate) {
        result.location = "No location available. Use manual coordinates or allow location access.";
        return result;
    }
    result.location = "Location: " + twoDecimals(coordinate->latitude) + "°, " +
                      twoDecimals(coordinate->longitude) + "°";

    // A typed infinity or a number beyond any place on earth has no sun to show.
    const auto sun =
        sun::solarPosition(sampleDate_, timeZone_, coordinate->latitude, coordinate->longitude);
    if (!sun || !std::isfinite(sun->altitude) || !std::isfinite(sun->azimuth))
        return result;
    result.sun = "Now: " + formatTime(sampleDate_) + " • Alt " + twoDecimals(sun->altitude) +
                 "° • Az " + twoDecimals(sun->azimuth) + "°";

    if (const auto closest =
            document::closestFrame(appState_.images(), sun->altitude, sun->azimuth)) {
        result.frame = "Closest frame: " + closest->image.fileName + " (ΔAlt " +
                       twoDecimals(closest->altitudeDifference) + "°, ΔAz " +
                       twoDecimals(closest->azimuthDifference) + "°)";
    }
    return result;
}

} // namespace lumivesper::shell
