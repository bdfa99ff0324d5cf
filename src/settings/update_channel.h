#pragma once

#include "platform/observer_list.h"

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::settings {

class Defaults;

enum class UpdateChannel { stable, beta };

// Every channel, in the order the settings window lists them.
inline constexpr std::array<UpdateChannel, 2> allUpdateChannels{UpdateChannel::stable,
                                                                UpdateChannel::beta};

std::string_view rawValue(UpdateChannel channel);           // "stable", "beta"
std::string_view label(UpdateChannel channel);              // "Stable", "Beta"
std::string_view channelDescription(UpdateChannel channel); // one line for the settings window
std::string_view feedPath(UpdateChannel channel);           // "/api/updates/appcast.xml", ...
// The channel with exactly this raw value (case matters: "Beta" is none).
std::optional<UpdateChannel> updateChannelFromRawValue(std::string_view raw);

// What the "UpdateChannelChanged" notification carries.
struct UpdateChannelChange {
    UpdateChannel oldChannel;
    UpdateChannel newChannel;
};

inline constexpr const char* updateChannelChangedNotification = "UpdateChannelChanged";

// The user's update channel. The defaults store holds the only copy: every read goes there, so
// reads are safe from any thread. Changes are made and announced on the main thread.
class UpdateChannelManager {
public:
    static constexpr const char* channelKey = "LumivesperAIUpdateChannel";

    // `defaults` must outlive the manager.
    explicit UpdateChannelManager(Defaults& defaults) : defaults_(defaults) {}

    // The stored channel; an unknown text and a missing value read as stable.
    UpdateChannel currentChannel() const;
    // Stores and announces a real change; assigning the channel already in effect does nothing.
    void setCurrentChannel(UpdateChannel channel);

    // `baseURL` followed directly by the channel's feed path; no slash is added or removed.
    std::string feedURLString(const std::string& baseURL) const;

    // Observers of "UpdateChannelChanged".
    [[nodiscard]] platform::Subscription
    observeChannelChanged(std::function<void(const UpdateChannelChange&)> observer) {
        return channelChanged_.subscribe(std::move(observer));
    }

private:
    Defaults& defaults_;
    platform::ObserverList<const UpdateChannelChange&> channelChanged_;
};

} // namespace lumivesper::settings
