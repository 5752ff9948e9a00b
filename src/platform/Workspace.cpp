#include "platform/Workspace.h"
