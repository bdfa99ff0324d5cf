#include "ui/inspector/qt_location_manager.h"

#include <QDBusConnection>
#include <QGeoCoordinate>
#include <QGeoPositionInfo>
#include <QMetaObject>
#include <QVariantMap>

namespace lumivesper::ui {

const char* const QtLocationManager::noSourceText =
    "No location service is available on this system. Enter the coordinates by hand, or install "
    "and start GeoClue.";

QtLocationManager::QtLocationManager(QObject* parent) : QObject(parent) {}

QtLocationManager::~QtLocationManager() = default;

std::string QtLocationManager::errorText(QGeoPositionInfoSource::Error error) {
    switch (error) {
    case QGeoPositionInfoSource::AccessError:
        return "Access to the location was denied. Allow location services for Lumivesper AI in "
               "the system's privacy settings.";
    case QGeoPositionInfoSource::ClosedError:
        return "The location service was closed. Turn location services on in the system's "
               "privacy settings.";
    case QGeoPositionInfoSource::UpdateTimeoutError:
        return "The location could not be determined in time.";
    case QGeoPositionInfoSource::UnknownSourceError:
        return "The location service failed for an unknown reason.";
    case QGeoPositionInfoSource::NoError:
        break;
    }
    return "The location service failed.";
}

bool QtLocationManager::ensureSource() {
    if (triedSource_)
        return source_ != nullptr;
    triedSource_ = true;
    // GeoClue names the asking program by its desktop file.
    QVariantMap parameters;
    parameters.insert(QStringLiteral("desktopId"), QStringLiteral("ai.lumivesper.Lumivesper"));
    source_ = QGeoPositionInfoSource::createDefaultSource(parameters, this);
    if (!source_)
        return false;
    // GeoClue lives on the system bus; without one, a request would only time out.
    if (source_->sourceName() == QLatin1String("geoclue2") &&
        !QDBusConnection::systemBus().isConnected()) {
        delete source_;
        source_ = nullptr;
        return false;
    }
    connect(source_, &QGeoPositionInfoSource::positionUpdated, this,
            &QtLocationManager::positionUpdated);
    connect(source_, &QGeoPositionInfoSource::errorOccurred, this,
            &QtLocationManager::sourceFailed);
    return true;
}

void QtLocationManager::requestLocation() {
    if (!ensureSource()) {
        failLater(noSourceText);
        return;
    }
    source_->requestUpdate(requestTimeoutMilliseconds);
}

void QtLocationManager::failLater(const std::string& description) {
    QMetaObject::invokeMethod(
        this,
        [this, description] {
            if (delegate_)
                delegate_->locationManagerDidFail(description);
        },
        Qt::QueuedConnection);
}

void QtLocationManager::positionUpdated(const QGeoPositionInfo& info) {
    if (!delegate_)
        return;
    const QGeoCoordinate coordinate = info.coordinate();
    std::vector<shell::GeoCoordinate> fixes;
    if (coordinate.isValid())
        fixes.push_back({coordinate.latitude(), coordinate.longitude()});
    delegate_->locationManagerDidUpdateLocations(fixes);
}

void QtLocationManager::sourceFailed(QGeoPositionInfoSource::Error error) {
    if (error == QGeoPositionInfoSource::AccessError &&
        status_ != shell::LocationAuthorization::denied) {
        status_ = shell::LocationAuthorization::denied;
        if (delegate_)
            delegate_->locationManagerDidChangeAuthorization();
    }
    if (delegate_)
        delegate_->locationManagerDidFail(errorText(error));
}

} // namespace lumivesper::ui
