#pragma once

#include <QStringView>

namespace fiva::console {

// Every line Fiva prints goes through here: the message, one space, the description and a line
// break, on standard output, flushed at once so the line is there even if the program dies next.
// A description of the form "<path>: <the system's words for an errno>" is printed as the French
// sentence backup::describeFileError makes of it.
void print(QStringView message, QStringView description);
// A message that has no description of its own.
void print(QStringView message);

} // namespace fiva::console
