#include "shell/app/qt_main_thread.h"

#include <QMetaObject>

namespace lumivesper::shell {

void QtMainThread::post(std::function<void()> work) {
    QMetaObject::invokeMethod(
        &context_, [work = std::move(work)] { work(); }, Qt::QueuedConnection);
}

} // namespace lumivesper::shell
