#include "settings/app_settings.h"

#include "settings/defaults.h"
#include "settings/server_config.h"

namespace lumivesper::settings {

static_assert(std::string_view(AppSettings::updateChannelKey) ==
                  std::string_view(UpdateChannelManager::channelKey),
              "the settings and the channel manager share one key");

AppSettings::AppSettings(Defaults& defaults, UpdateChannelManager& channels)
    : defaults_(defaults), channels_(channels) {
    load();
}

void AppSettings::setUpdateChannel(UpdateChannel channel) {
    updateChannel_ = channel;
    changed_.notify();
    channels_.setCurrentChannel(channel);
}

void AppSettings::setUseCustomServer(bool value) {
    useCustomServer_ = value;
    changed_.notify();
    defaults_.setBoolean(useCustomServerKey, value);
}

void AppSettings::setCustomServerURL(std::string value) {
    customServerURL_ = std::move(value);
    changed_.notify();
    defaults_.setString(serverURLOverrideKey, customServerURL_);
}

std::string AppSettings::effectiveServerURL() const {
    if (useCustomServer_ && !customServerURL_.empty())
        return customServerURL_;
    return defaultServerURL();
}

void AppSettings::load() {
    const auto stored = defaults_.string(UpdateChannelManager::channelKey);
    setUpdateChannel(stored && *stored == rawValue(UpdateChannel::beta) ? UpdateChannel::beta
                                                                        : UpdateChannel::stable);
    setUseCustomServer(defaults_.boolean(useCustomServerKey).value_or(false));
    setCustomServerURL(defaults_.string(serverURLOverrideKey).value_or(""));
}

void AppSettings::resetToDefaults() {
    setUpdateChannel(UpdateChannel::stable);
    setUseCustomServer(false);
    setCustomServerURL("");
}

} // namespace lumivesper::settings
