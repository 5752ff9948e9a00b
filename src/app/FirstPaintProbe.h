#pragma once

class QWidget;

namespace fiva {

// For the launch benchmark: when FIVA_FIRST_PAINT_PROBE is set, the first paint of the record list
// prints "first-paint <monotonic ns> rows <count>" on standard output and quits. Does nothing
// otherwise.
void watchFirstPaintIfAsked(QWidget *window);

} // namespace fiva
