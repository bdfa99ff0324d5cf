#include "document/app_state.h"
#include "shell/solar_position_service.h"
#include "shell/sun_preview_model.h"

#include <chrono>
#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

using namespace std::chrono;

// A location source driven by the test: it records what it was asked and answers on demand.
class ScriptedLocationManager final : public LocationManager {
public:
    void setDelegate(Delegate* delegate) override { delegate_ = delegate; }
    void requestWhenInUseAuthorization() override { ++authorizationRequests; }
    void requestLocation() override { ++locationRequests; }
    LocationAuthorization authorizationStatus() const override { return status; }

    Delegate& delegate() { return *delegate_; }

    LocationAuthorization status = LocationAuthorization::notDetermined;
    int authorizationRequests = 0;
    int locationRequests = 0;

private:
    Delegate* delegate_ = nullptr;
};

// A service over a scripted location source.
class SolarPositionServiceTest : public ::testing::Test {
protected:
    SolarPositionServiceTest() {
        auto made = std::make_unique<ScriptedLocationManager>();
        manager = made.get();
        service = std::make_unique<SolarPositionService>(std::move(made));
    }

    ScriptedLocationManager* manager;
    std::unique_ptr<SolarPositionService> service;
};

TEST_F(SolarPositionServiceTest, ARequestAsksOnceAndIsOpenUntilItsAnswer) {
    service->requestCurrentLocation();
    EXPECT_TRUE(service->isUpdating());
    EXPECT_EQ(manager->authorizationRequests, 1);
    EXPECT_EQ(manager->locationRequests, 1);

    manager->delegate().locationManagerDidUpdateLocations({{1, 2}, {40.5, -3.7}});
    EXPECT_FALSE(service->isUpdating());
    ASSERT_TRUE(service->lastLocation());
    EXPECT_EQ(service->lastLocation()->latitude, 40.5) << "the newest fix is the last one";
}

TEST_F(SolarPositionServiceTest, AFailureKeepsTheLastFixAndANewRequestClearsTheError) {
    manager->delegate().locationManagerDidUpdateLocations({{40.5, -3.7}});
    service->requestCurrentLocation();
    manager->delegate().locationManagerDidFail("The location service failed.");
    EXPECT_FALSE(service->isUpdating());
    EXPECT_EQ(service->errorMessage(), "The location service failed.");
    EXPECT_TRUE(service->lastLocation());

    service->requestCurrentLocation();
    EXPECT_FALSE(service->errorMessage());
    manager->delegate().locationManagerDidUpdateLocations({});
    EXPECT_FALSE(service->lastLocation()) << "an empty answer clears the fix";
}

TEST_F(SolarPositionServiceTest, AGrantAsksForTheLocationWithoutTouchingTheRequestState) {
    manager->status = LocationAuthorization::authorizedAlways;
    manager->delegate().locationManagerDidChangeAuthorization();
    EXPECT_EQ(service->authorizationStatus(), LocationAuthorization::authorizedAlways);
    EXPECT_EQ(manager->locationRequests, 1);
    EXPECT_FALSE(service->isUpdating());

    manager->delegate().locationManagerDidChangeAuthorizationStatus(LocationAuthorization::denied);
    EXPECT_EQ(service->authorizationStatus(), LocationAuthorization::denied);
    EXPECT_EQ(manager->locationRequests, 1);
}

TEST(CoordinateTextTest, TheWholeTrimmedTextMustBeOneNumber) {
    EXPECT_EQ(parseCoordinateText("  40.5 "), 40.5);
    EXPECT_EQ(parseCoordinateText("\t-3.75\n"), -3.75);
    EXPECT_EQ(parseCoordinateText("+12"), 12.0);
    EXPECT_EQ(parseCoordinateText("95"), 95.0) << "no range check";
    EXPECT_EQ(parseCoordinateText("1e2"), 100.0);
    for (const char* refused : {"40,5", "", "   ", "40.5°", "40.5 N", "4 0", "+-1", "--1", "+"})
        EXPECT_FALSE(parseCoordinateText(refused)) << '"' << refused << '"';
}

class SunPreviewModelTest : public SolarPositionServiceTest {
protected:
    // The documented check: 2024-03-20 12:00 UTC at 40° N, 0° E puts the sun at 50.112°, 177.157°.
    static system_clock::time_point equinoxNoon() {
        return sys_days(year(2024) / March / 20) + hours(12);
    }

    SunPreviewModel makeModel() {
        return SunPreviewModel(state, *service, sun::TimeZone::utc(), [this] { return clock; });
    }

    static std::string clockText(system_clock::time_point) { return "12:00"; }

    document::WallpaperImage image(const std::string& name, std::optional<double> altitude,
                                   std::optional<double> azimuth) {
        document::WallpaperImage made;
        made.fileName = name;
        made.altitude = altitude;
        made.azimuth = azimuth;
        return made;
    }

    document::AppState state;
    system_clock::time_point clock = equinoxNoon();
};

TEST_F(SunPreviewModelTest, WithoutAPlaceOnlyTheHintShows) {
    auto model = makeModel();
    const auto lines = model.lines(clockText);
    EXPECT_EQ(lines.location,
              "No location available. Use manual coordinates or allow location access.");
    EXPECT_FALSE(lines.sun);
    EXPECT_FALSE(lines.frame);
    EXPECT_FALSE(lines.error);
}

TEST_F(SunPreviewModelTest, ManualCoordinatesGiveTheSunAndTheClosestFrame) {
    state.addImage(image("night.jpg", -30.0, 0.0));
    state.addImage(image("noon.jpg", 60.0, 180.0));
    state.addImage(image("loose.jpg", 50.0, std::nullopt)); // without both angles: never chosen
    auto model = makeModel();
    model.setUseManualLocation(true);
    model.setManualLatitude("  40 ");
    model.setManualLongitude("0");

    const auto lines = model.lines(clockText);
    EXPECT_EQ(lines.location, "Location: 40.00°, 0.00°");
    EXPECT_EQ(lines.sun, "Now: 12:00 • Alt 50.11° • Az 177.16°");
    EXPECT_EQ(lines.frame, "Closest frame: noon.jpg (ΔAlt 9.89°, ΔAz 2.84°)");
}

TEST_F(SunPreviewModelTest, UnparsableManualTextFallsBackToTheLastFix) {
    auto model = makeModel();
    model.setUseManualLocation(true);
    model.setManualLatitude("40,5");
    model.setManualLongitude("0");
    EXPECT_FALSE(model.resolvedCoordinate());

    manager->delegate().locationManagerDidUpdateLocations({{51.5, -0.12}});
    EXPECT_EQ(model.lines(clockText).location, "Location: 51.50°, -0.12°");
    model.setManualLatitude("  40.5 ");
    EXPECT_EQ(model.lines(clockText).location, "Location: 40.50°, 0.00°");
    model.setUseManualLocation(false); // the switch off: the fix again, whatever the fields say
    EXPECT_EQ(model.resolvedCoordinate()->latitude, 51.5);
}

TEST_F(SunPreviewModelTest, AnInfiniteOrAbsurdPlaceShowsNoSunLine) {
    state.addImage(image("noon.jpg", 60.0, 180.0));
    auto model = makeModel();
    model.setUseManualLocation(true);
    model.setManualLongitude("0");
    for (const char* latitude : {"inf", "-infinity", "nan"}) {
        model.setManualLatitude(latitude);
        const auto lines = model.lines(clockText);
        EXPECT_TRUE(lines.location.starts_with("Location: ")) << latitude;
        EXPECT_FALSE(lines.sun) << latitude;
        EXPECT_FALSE(lines.frame) << latitude;
    }
    // A longitude so large that four times it overflows: answered at once, without a sun.
    model.setManualLatitude("40");
    model.setManualLongitude("1e308");
    EXPECT_FALSE(model.lines(clockText).sun);
    // Out of range but finite: used as it stands.
    model.setManualLatitude("95");
    model.setManualLongitude("1e300");
    EXPECT_TRUE(model.lines(clockText).sun);
}

TEST_F(SunPreviewModelTest, TheErrorLineCarriesThePlatformsText) {
    auto model = makeModel();
    model.useCurrentLocation();
    EXPECT_FALSE(model.canRequestLocation());
    model.useCurrentLocation(); // the button is disabled while a request is open
    EXPECT_EQ(manager->locationRequests, 1);
    manager->delegate().locationManagerDidFail("No location service is available.");
    EXPECT_TRUE(model.canRequestLocation());
    EXPECT_EQ(model.lines(clockText).error, "Location error: No location service is available.");
}

TEST_F(SunPreviewModelTest, TheInstantMovesOnlyOnRefresh) {
    auto model = makeModel();
    int changes = 0;
    const auto subscription = model.observe([&] { ++changes; });
    clock += hours(6);
    EXPECT_EQ(model.sampleDate(), equinoxNoon());
    model.refresh();
    EXPECT_EQ(model.sampleDate(), equinoxNoon() + hours(6));
    EXPECT_EQ(changes, 1);
    state.addImage(image("late.jpg", 1.0, 269.0)); // the document's images are part of the lines
    EXPECT_EQ(changes, 2);
}

} // namespace
} // namespace lumivesper::shell
