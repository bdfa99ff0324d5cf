#pragma once

#include "platform/observer_list.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumivesper::shell {

// Whether the user lets the program read the location, as the location source last said.
enum class LocationAuthorization {
    notDetermined,
    restricted,
    denied,
    authorizedAlways, // the granted state on a desktop
    authorizedWhenInUse,
};

struct GeoCoordinate {
    double latitude = 0;  // degrees, positive north
    double longitude = 0; // degrees, positive east
};

// The platform's location source, seen from the service: it asks, and reports back through its
// delegate, later and on the main thread.
class LocationManager {
public:
    class Delegate {
    public:
        // The status changed; read it from the manager.
        virtual void locationManagerDidChangeAuthorization() = 0;
        // The older form of the same, with the status as an argument.
        virtual void locationManagerDidChangeAuthorizationStatus(LocationAuthorization status) = 0;
        // Fixes, newest last.
        virtual void locationManagerDidUpdateLocations(const std::vector<GeoCoordinate>& fixes) = 0;
        // A failure, in the platform's own words.
        virtual void locationManagerDidFail(const std::string& description) = 0;

    protected:
        ~Delegate() = default;
    };

    virtual ~LocationManager() = default;
    virtual void setDelegate(Delegate* delegate) = 0;
    virtual void requestWhenInUseAuthorization() = 0;
    // One single fix, answered through the delegate.
    virtual void requestLocation() = 0;
    virtual LocationAuthorization authorizationStatus() const = 0;
};

// The sun preview's access to the user's location. It asks for nothing by itself: only
// requestCurrentLocation() does. Main thread only.
class SolarPositionService final : private LocationManager::Delegate {
public:
    explicit SolarPositionService(std::unique_ptr<LocationManager> manager);
    ~SolarPositionService();

    SolarPositionService(const SolarPositionService&) = delete;
    SolarPositionService& operator=(const SolarPositionService&) = delete;

    LocationAuthorization authorizationStatus() const { return authorizationStatus_; }
    const std::optional<GeoCoordinate>& lastLocation() const { return lastLocation_; }
    const std::optional<std::string>& errorMessage() const { return errorMessage_; }
    // From a request until its answer.
    bool isUpdating() const { return isUpdating_; }

    void requestCurrentLocation();

    // After any field changed.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    void locationManagerDidChangeAuthorization() override;
    void locationManagerDidChangeAuthorizationStatus(LocationAuthorization status) override;
    void locationManagerDidUpdateLocations(const std::vector<GeoCoordinate>& fixes) override;
    void locationManagerDidFail(const std::string& description) override;
    void storeAuthorization(LocationAuthorization status);

    std::unique_ptr<LocationManager> manager_;
    LocationAuthorization authorizationStatus_ = LocationAuthorization::notDetermined;
    std::optional<GeoCoordinate> lastLocation_;
    std::optional<std::string> errorMessage_;
    bool isUpdating_ = false;
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::shell
