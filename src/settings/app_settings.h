#pragma once

#include "platform/observer_list.h"
#include "settings/update_channel.h"

#include <functional>
#include <string>

namespace lumivesper::settings {

class Defaults;

// What the settings window edits: the update channel and the choice of a custom server. The
// application makes one instance at start-up and keeps it to the end; main thread only. Every
// assignment is stored at once. No network client reads the custom server: they all use
// defaultServerURL(); the window only shows effectiveServerURL().
class AppSettings {
public:
    static constexpr const char* updateChannelKey = "LumivesperAIUpdateChannel";
    static constexpr const char* serverURLOverrideKey = "LumivesperAIServerURLOverride";
    static constexpr const char* useCustomServerKey = "LumivesperAIUseCustomServer";

    // Runs load(). Both arguments must outlive the settings.
    AppSettings(Defaults& defaults, UpdateChannelManager& channels);

    UpdateChannel updateChannel() const { return updateChannel_; }
    bool useCustomServer() const { return useCustomServer_; }
    const std::string& customServerURL() const { return customServerURL_; }

    // Hands the channel to the manager, which stores and announces a real change.
    void setUpdateChannel(UpdateChannel channel);
    void setUseCustomServer(bool value);
    // Stored as given: no URL check.
    void setCustomServerURL(std::string value);

    // The custom URL when the switch is on and the field is not empty, else defaultServerURL().
    std::string effectiveServerURL() const;

    // Reads the stored values and assigns them through the setters, so both server keys are
    // present afterwards even on a fresh account.
    void load();
    // Stable channel, switch off, empty URL; nothing else is touched.
    void resetToDefaults();

    // Called after any field changed.
    [[nodiscard]] platform::Subscription observe(std::function<void()> observer) {
        return changed_.subscribe(std::move(observer));
    }

private:
    Defaults& defaults_;
    UpdateChannelManager& channels_;
    UpdateChannel updateChannel_ = UpdateChannel::stable;
    bool useCustomServer_ = false;
    std::string customServerURL_;
    platform::ObserverList<> changed_;
};

} // namespace lumivesper::settings
