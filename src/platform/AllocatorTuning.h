#pragma once

namespace fiva {

// A data file of 100,000 records becomes about 150 MB of small strings. In 4 KiB pages every
// first touch of that memory is a page fault, and on virtual machines a fault costs several
// microseconds: decoding took 450 ms there, 120 ms once the allocator grows its heap in large
// steps backed by transparent huge pages. glibc reads those settings only from the environment
// when a program starts, so the program starts itself once more with them set.
//
// Called first in main(). Returns in the process that has the settings (or when they cannot be
// had, or the user chose allocator settings of their own), with the environment as it was, so
// that programs started from here do not inherit them.
void restartWithTunedAllocator(char **argv);

} // namespace fiva
