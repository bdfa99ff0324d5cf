#include "shell/app/terminal_interrupts.h"

#include <cassert>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace lumivesper::shell {

namespace {

// Written by the signal handler, which may touch nothing but this.
volatile std::sig_atomic_t wakeFd = -1;

extern "C" void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(wakeFd, &byte, 1);
}

} // namespace

TerminalInterrupts::TerminalInterrupts(QObject* parent) : QObject(parent) {
    assert(wakeFd == -1 && "one TerminalInterrupts per process");
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, fds_) != 0)
        return; // the default handlers stay: Ctrl-C then ends the process at once
    wakeFd = fds_[0];
    notifier_ = std::make_unique<QSocketNotifier>(fds_[1], QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        char drained[16];
        while (::read(fds_[1], drained, sizeof drained) > 0) {
        }
        emit interrupted();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

TerminalInterrupts::~TerminalInterrupts() {
    if (fds_[0] < 0)
        return;
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    wakeFd = -1;
    notifier_.reset();
    ::close(fds_[0]);
    ::close(fds_[1]);
}

} // namespace lumivesper::shell
