#pragma once

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// Read access to the host's settings; see yinet/host/settings.h for where values come from. Safe from several threads.
class YINET_API YEnviron_class {
 public:
  // Empty when nobody has a value. Section and key are compared without regard to case.
  YString Get(const YString& section, const YString& key) const;
};
YINET_API extern YEnviron_class YEnviron;
