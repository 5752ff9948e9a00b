#include "platform/Paths.h"
