#include "yinet/host/version.h"

const char* yinet_version() noexcept { return YINET_VERSION; }
