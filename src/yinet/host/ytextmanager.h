#pragma once

#include <string_view>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// Gives out the numbered messages of the host, filled with their parameters. Safe from several threads.
class YINET_API YTextManager_class {
 public:
  YString GetYText(int number, std::string_view p1 = {}, std::string_view p2 = {}, std::string_view p3 = {},
                   std::string_view p4 = {}, std::string_view p5 = {}, std::string_view p6 = {},
                   std::string_view p7 = {}, std::string_view p8 = {}, std::string_view p9 = {}) const;
};
YINET_API extern YTextManager_class YTextManager;
