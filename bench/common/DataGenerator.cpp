#include "common/DataGenerator.h"
