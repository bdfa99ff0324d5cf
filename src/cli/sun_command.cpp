#include "cli/command.h"
#include "cli/number_argument.h"
#include "sun/solar_position.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <ostream>
#include <regex>
#include <string>

namespace lumivesper::cli {

namespace {

constexpr const char* sunUsage =
    "Usage: lumivesper-cli sun --lat LATITUDE --lon LONGITUDE [--time ISO8601] [--tz ZONE]\n\n"
    "Prints the sun's altitude and azimuth in degrees (geometric, no refraction).\n\n"
    "  --lat LATITUDE    degrees, positive to the north (-90 to 90)\n"
    "  --lon LONGITUDE   degrees, positive to the east (-180 to 180)\n"
    "  --time ISO8601    e.g. 2024-03-20T12:00:00Z or 2024-03-20T14:00:00+02:00; without an\n"
    "                    offset the time is read in --tz. Default: now\n"
    "  --tz ZONE         a time zone of the system's database, e.g. Europe/Paris. Default: the\n"
    "                    local zone\n";

bool isKnownZone(const std::string& zone) {
    if (zone == "UTC" || zone == "GMT")
        return true;
    if (zone.empty() || zone.front() == '/' || zone.find("..") != std::string::npos)
        return false;
    std::error_code error;
    return std::filesystem::is_regular_file(std::filesystem::path("/usr/share/zoneinfo") / zone,
                                            error);
}

// Reads an ISO 8601 date and time. Without an offset it is a clock reading in the process's
// local zone (which --tz has set).
std::optional<std::chrono::system_clock::time_point> parseInstant(const std::string& text) {
    static const std::regex pattern(
        R"((\d{4})-(\d{2})-(\d{2})[T ](\d{2}):(\d{2})(?::(\d{2})(\.\d+)?)?(Z|[+-]\d{2}:?\d{2})?)");
    std::smatch match;
    if (!std::regex_match(text, match, pattern))
        return std::nullopt;
    std::tm fields{};
    fields.tm_year = std::stoi(match[1]) - 1900;
    fields.tm_mon = std::stoi(match[2]) - 1;
    fields.tm_mday = std::stoi(match[3]);
    fields.tm_hour = std::stoi(match[4]);
    fields.tm_min = std::stoi(match[5]);
    fields.tm_sec = match[6].matched ? std::stoi(match[6]) : 0;
    if (fields.tm_mon > 11 || fields.tm_mday < 1 || fields.tm_mday > 31 || fields.tm_hour > 23 ||
        fields.tm_min > 59 || fields.tm_sec > 60)
        return std::nullopt;
    const double fraction = match[7].matched ? std::stod("0" + match[7].str()) : 0.0;

    std::time_t seconds = 0;
    if (match[8].matched) {
        const std::string zone = match[8];
        seconds = timegm(&fields);
        if (zone != "Z") {
            const int sign = zone[0] == '-' ? -1 : 1;
            const std::string digits = std::regex_replace(zone.substr(1), std::regex(":"), "");
            const int offset =
                std::stoi(digits.substr(0, 2)) * 3600 + std::stoi(digits.substr(2)) * 60;
            seconds -= sign * offset;
        }
    } else {
        fields.tm_isdst = -1;
        seconds = std::mktime(&fields);
    }
    using namespace std::chrono;
    return system_clock::from_time_t(seconds) +
           duration_cast<system_clock::duration>(duration<double>(fraction));
}

} // namespace

int runSun(const CommandContext& context) {
    std::optional<double> latitude;
    std::optional<double> longitude;
    std::optional<std::string> timeText;
    std::optional<std::string> zone;

    const auto& args = context.arguments;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option == "--help" || option == "-h") {
            context.out << sunUsage;
            return exitSuccess;
        }
        if (option != "--lat" && option != "--lon" && option != "--time" && option != "--tz") {
            context.err << "lumivesper-cli sun: unknown argument '" << option << "'\n\n"
                        << sunUsage;
            return exitUsage;
        }
        if (i + 1 >= args.size()) {
            context.err << "lumivesper-cli sun: " << option << " needs a value\n";
            return exitUsage;
        }
        const std::string& value = args[++i];
        if (option == "--lat" || option == "--lon") {
            auto number = parseNumber(value);
            const double limit = option == "--lat" ? 90.0 : 180.0;
            if (!number || std::fabs(*number) > limit) {
                context.err << "lumivesper-cli sun: " << option << " must be a number from -"
                            << limit << " to " << limit << ", not '" << value << "'\n";
                return exitUsage;
            }
            (option == "--lat" ? latitude : longitude) = number;
        } else if (option == "--time") {
            timeText = value;
        } else {
            zone = value;
        }
    }
    if (!latitude || !longitude) {
        context.err << "lumivesper-cli sun: --lat and --lon are required\n\n" << sunUsage;
        return exitUsage;
    }
    if (zone) {
        if (!isKnownZone(*zone)) {
            context.err << "lumivesper-cli sun: unknown time zone '" << *zone << "'\n";
            return exitUsage;
        }
        // The CLI is single-threaded here; the zone is the process's for the rest of the run.
        ::setenv("TZ", zone->c_str(), 1);
        ::tzset();
    }
    auto instant = std::chrono::system_clock::now();
    if (timeText) {
        auto parsed = parseInstant(*timeText);
        if (!parsed) {
            context.err << "lumivesper-cli sun: --time must be an ISO 8601 date and time such as "
                           "2024-03-20T12:00:00Z, not '"
                        << *timeText << "'\n";
            return exitUsage;
        }
        instant = *parsed;
    }

    // The arguments were checked to be finite above, so there is always a position.
    const auto position =
        *sun::solarPosition(instant, sun::TimeZone::current(), *latitude, *longitude);
    char line[64];
    std::snprintf(line, sizeof line, "altitude %.3f\nazimuth %.3f\n", position.altitude,
                  position.azimuth);
    context.out << line;
    return exitSuccess;
}

} // namespace lumivesper::cli
