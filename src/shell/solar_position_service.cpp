#include "shell/solar_position_service.h"

namespace lumivesper::shell {

SolarPositionService::SolarPositionService(std::unique_ptr<LocationManager> manager)
    : manager_(std::move(manager)) {
    manager_->setDelegate(this);
}

SolarPositionService::~SolarPositionService() {
    manager_->setDelegate(nullptr);
}

void SolarPositionService::requestCurrentLocation() {
    errorMessage_.reset();
    isUpdating_ = true;
    changed_.notify();
    manager_->requestWhenInUseAuthorization();
    manager_->requestLocation();
}

void SolarPositionService::locationManagerDidChangeAuthorization() {
    storeAuthorization(manager_->authorizationStatus());
}

void SolarPositionService::locationManagerDidChangeAuthorizationStatus(
    LocationAuthorization status) {
    storeAuthorization(status);
}

void SolarPositionService::storeAuthorization(LocationAuthorization status) {
    authorizationStatus_ = status;
    changed_.notify();
    // A grant that arrives after the request answers it now; isUpdating stays as it is.
    if (status == LocationAuthorization::authorizedAlways)
        manager_->requestLocation();
}

void SolarPositionService::locationManagerDidUpdateLocations(
    const std::vector<GeoCoordinate>& fixes) {
    lastLocation_ = fixes.empty() ? std::nullopt : std::optional(fixes.back());
    isUpdating_ = false;
    changed_.notify();
}

void SolarPositionService::locationManagerDidFail(const std::string& description) {
    // The last fix stays: an older location is still worth showing the sun for.
    errorMessage_ = description;
    isUpdating_ = false;
    changed_.notify();
}

} // namespace lumivesper::shell
