#pragma once

#include "shell/solar_position_service.h"

#include <QGeoPositionInfoSource>
#include <QObject>

namespace lumivesper::ui {

// The location source of the desktop through QtPositioning (GeoClue 2 on Linux desktops). The
// source is made at the first request, so that a window that never asks never talks to the
// location service. Every answer reaches the delegate from the event loop, never from inside a
// request.
class QtLocationManager final : public QObject, public shell::LocationManager {
    Q_OBJECT

public:
    // How long one request may take before it counts as failed.
    static constexpr int requestTimeoutMilliseconds = 30000;

    explicit QtLocationManager(QObject* parent = nullptr);
    ~QtLocationManager() override;

    void setDelegate(Delegate* delegate) override { delegate_ = delegate; }
    // The desktop's location agent asks the user when the request is made; nothing to do first.
    void requestWhenInUseAuthorization() override {}
    void requestLocation() override;
    shell::LocationAuthorization authorizationStatus() const override { return status_; }

    // The text for a failure of the location service.
    static std::string errorText(QGeoPositionInfoSource::Error error);
    static const char* const noSourceText;

private:
    bool ensureSource();
    void failLater(const std::string& description);
    void positionUpdated(const QGeoPositionInfo& info);
    void sourceFailed(QGeoPositionInfoSource::Error error);

    Delegate* delegate_ = nullptr;
    QGeoPositionInfoSource* source_ = nullptr;
    bool triedSource_ = false;
    shell::LocationAuthorization status_ = shell::LocationAuthorization::notDetermined;
};

} // namespace lumivesper::ui
