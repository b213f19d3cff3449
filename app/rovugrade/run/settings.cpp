#include "run/settings.h"

const char* upgradeUrl = nullptr;
const char* keyPath = "/etc/ssh/rovu_pub.pem";
uint32_t verbosity = 0;
bool dryRun = false;
bool moistRun = false;
