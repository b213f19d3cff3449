#include "run/settings.h"

const char* upgradeUrl = nullptr;
const char* keyPath = kPublicKeyPath;
uint32_t verbosity = 0;
bool dryRun = false;
bool moistRun = false;
