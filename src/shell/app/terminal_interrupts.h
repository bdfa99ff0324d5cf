#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace lumivesper::shell {

// Turns Ctrl-C in the launching terminal (SIGINT) and a polite kill (SIGTERM) into a signal on
// the event loop, so that they quit through the unsaved-changes flow like the menu does. One per
// process: a signal handler can only reach a fixed place.
class TerminalInterrupts final : public QObject {
    Q_OBJECT

public:
    explicit TerminalInterrupts(QObject* parent = nullptr);
    ~TerminalInterrupts() override;

signals:
    void interrupted();

private:
    int fds_[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace lumivesper::shell
