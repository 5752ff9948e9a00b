#pragma once

#include <functional>

class QWidget;

namespace fiva {

// Runs `action` once the window's record list has been painted for the first time: work the first
// sight of the window does not need waits until then.
void afterFirstPaint(QWidget *window, std::function<void()> action);

// For the launch benchmark: when FIVA_FIRST_PAINT_PROBE is set, the first paint of the record list
// prints "first-paint <monotonic ns> rows <count>" on standard output and quits. Does nothing
// otherwise.
void watchFirstPaintIfAsked(QWidget *window);

} // namespace fiva
