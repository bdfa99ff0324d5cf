#pragma once

#include "platform/main_thread.h"

#include <QObject>

namespace lumivesper::shell {

// Posts work to Qt's event loop as a queued call on a context object of its own: work still
// queued when this object goes is dropped with it. Make it on the main thread.
class QtMainThread final : public platform::MainThread {
public:
    void post(std::function<void()> work) override;

private:
    QObject context_;
};

} // namespace lumivesper::shell
