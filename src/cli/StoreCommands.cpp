#include "cli/Commands.h"

namespace fiva::cli {

std::span<const Command> storeCommands()
{
    return {};
}

} // namespace fiva::cli
