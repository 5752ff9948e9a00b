#include "app/FirstPaintProbe.h"

#include <QAbstractItemView>
#include <QCoreApplication>
#include <QEvent>
#include <QTimer>

#include <cstdio>
#include <functional>
#include <time.h>
#include <utility>

namespace fiva {

namespace {

// Calls its action once, just after the first paint of the list it watches has been delivered.
class FirstPaintWatch final : public QObject
{
public:
    FirstPaintWatch(QAbstractItemView *list, std::function<void()> action)
        : QObject(list), m_action(std::move(action))
    {
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && m_action) {
            // Once the paint in progress has been delivered, not as it begins.
            QTimer::singleShot(0, this, std::exchange(m_action, {}));
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_action;
};

QAbstractItemView *recordList(QWidget *window)
{
    return window ? window->findChild<QAbstractItemView *>(QStringLiteral("recordList")) : nullptr;
}

} // namespace

void afterFirstPaint(QWidget *window, std::function<void()> action)
{
    if (QAbstractItemView *list = recordList(window))
        list->viewport()->installEventFilter(new FirstPaintWatch(list, std::move(action)));
    else
        QTimer::singleShot(0, std::move(action));
}

void watchFirstPaintIfAsked(QWidget *window)
{
    QAbstractItemView *list = recordList(window);
    if (qEnvironmentVariableIsEmpty("FIVA_FIRST_PAINT_PROBE") || !list)
        return;
    afterFirstPaint(window, [list] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::printf("first-paint %lld rows %d\n",
                    static_cast<long long>(now.tv_sec) * 1'000'000'000LL + now.tv_nsec,
                    list->model() ? list->model()->rowCount() : 0);
        std::fflush(stdout);
        QCoreApplication::exit(0);
    });
}

} // namespace fiva
