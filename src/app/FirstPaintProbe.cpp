#include "app/FirstPaintProbe.h"

#include <QAbstractItemView>
#include <QCoreApplication>
#include <QEvent>
#include <QTimer>

#include <cstdio>
#include <time.h>

namespace fiva {

namespace {

class FirstPaintProbe final : public QObject
{
public:
    explicit FirstPaintProbe(QAbstractItemView *list) : QObject(list), m_list(list) {}

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && !m_seen) {
            m_seen = true;
            // Reported once the paint in progress has been delivered, not as it begins.
            QTimer::singleShot(0, this, [this] {
                timespec now{};
                clock_gettime(CLOCK_MONOTONIC, &now);
                std::printf("first-paint %lld rows %d\n",
                            static_cast<long long>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec,
                            m_list->model() ? m_list->model()->rowCount() : 0);
                std::fflush(stdout);
                QCoreApplication::exit(0);
            });
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QAbstractItemView *m_list;
    bool m_seen = false;
};

} // namespace

void watchFirstPaintIfAsked(QWidget *window)
{
    if (qEnvironmentVariableIsEmpty("FIVA_FIRST_PAINT_PROBE") || !window)
        return;
    if (auto *list = window->findChild<QAbstractItemView *>(QStringLiteral("recordList")))
        list->viewport()->installEventFilter(new FirstPaintProbe(list));
}

} // namespace fiva
