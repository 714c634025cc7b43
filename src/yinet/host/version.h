// The version of the library that is loaded, which may be newer than the headers a program was built with.
#pragma once

#include "yinet/host/export.h"

// "major.minor.patch", static text. Callable from any thread at any time.
extern "C" YINET_API const char* yinet_version() noexcept;
