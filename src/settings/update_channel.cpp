#include "settings/update_channel.h"

#include "platform/console.h"
#include "settings/defaults.h"

namespace lumivesper::settings {

std::string_view rawValue(UpdateChannel channel) {
    return channel == UpdateChannel::beta ? "beta" : "stable";
}

std::string_view label(UpdateChannel channel) {
    return channel == UpdateChannel::beta ? "Beta" : "Stable";
}

std::string_view channelDescription(UpdateChannel channel) {
    return channel == UpdateChannel::beta ? "Early access to new features (may be unstable)"
                                          : "Receive stable, production-ready updates";
}

std::string_view feedPath(UpdateChannel channel) {
    return channel == UpdateChannel::beta ? "/api/updates/appcast-beta.xml"
                                          : "/api/updates/appcast.xml";
}

std::optional<UpdateChannel> updateChannelFromRawValue(std::string_view raw) {
    for (const UpdateChannel channel : allUpdateChannels)
        if (rawValue(channel) == raw)
            return channel;
    return std::nullopt;
}

UpdateChannel UpdateChannelManager::currentChannel() const {
    const auto stored = defaults_.string(channelKey);
    if (!stored)
        return UpdateChannel::stable;
    return updateChannelFromRawValue(*stored).value_or(UpdateChannel::stable);
}

void UpdateChannelManager::setCurrentChannel(UpdateChannel channel) {
    const UpdateChannel old = currentChannel();
    // A missing value already reads as stable, so a fresh account keeps the key absent until the
    // first real change.
    if (channel == old)
        return;
    defaults_.setString(channelKey, std::string(rawValue(channel)));
    channelChanged_.notify(UpdateChannelChange{old, channel});
    platform::consoleLine("📡 Update channel changed: " + std::string(rawValue(old)) + " → " +
                          std::string(rawValue(channel)));
}

std::string UpdateChannelManager::feedURLString(const std::string& baseURL) const {
    return baseURL + std::string(feedPath(currentChannel()));
}

} // namespace lumivesper::settings
