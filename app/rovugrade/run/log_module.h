// The module under which every file of this folder logs.

#pragma once

#include "logging/log.h"

LOG_MODULE("ROVU", "app/rovugrade");
