#pragma once

// How long the window could not react: a 10 ms timer on the main thread's event loop, and the
// longest gap between its ticks. On a loaded machine a wall-clock gap also holds time the thread
// waited for a core, so the main thread's own CPU time between ticks is kept too: the most work
// the window did in one go.

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <algorithm>
#include <time.h>

namespace lumivesper::bench {

class EventLoopStallMonitor final : public QObject {
public:
    static constexpr int tickMs = 10;

    EventLoopStallMonitor() {
        timer_.setInterval(tickMs);
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, this, [this] { tick(); });
    }

    void start() {
        restart();
        timer_.start();
    }
    void stop() { timer_.stop(); }

    // Forgets what was seen so far: the next figures are those of a new step.
    void restart() {
        longestGapMs_ = 0;
        longestBusyMs_ = 0;
        sinceTick_.start();
        lastCpuMs_ = threadCpuMs();
    }

    // The longest time between two ticks, less the timer's own interval.
    qint64 longestStallMs() const { return std::max<qint64>(longestGapMs_ - tickMs, 0); }
    double longestBusyMs() const { return longestBusyMs_; }

private:
    static double threadCpuMs() {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
    }

    void tick() {
        longestGapMs_ = std::max(longestGapMs_, sinceTick_.restart());
        const double cpu = threadCpuMs();
        longestBusyMs_ = std::max(longestBusyMs_, cpu - lastCpuMs_);
        lastCpuMs_ = cpu;
    }

    QTimer timer_;
    QElapsedTimer sinceTick_;
    qint64 longestGapMs_ = 0;
    double longestBusyMs_ = 0;
    double lastCpuMs_ = 0;
};

} // namespace lumivesper::bench
