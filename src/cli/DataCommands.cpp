#include "cli/Commands.h"

namespace fiva::cli {

std::span<const Command> dataCommands()
{
    return {};
}

} // namespace fiva::cli
