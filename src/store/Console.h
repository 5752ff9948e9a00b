#pragma once

#include <QStringView>

namespace fiva::console {

// Every line Fiva prints goes through here: the message, one space, the description and a line
// break, on standard output, flushed at once so the line is there even if the program dies next.
void print(QStringView message, QStringView description);
// A message that has no description of its own.
void print(QStringView message);

} // namespace fiva::console
