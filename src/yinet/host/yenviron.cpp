#include "yinet/host/yenviron.h"

#include "yinet/host/settings.h"

YEnviron_class YEnviron;

YString YEnviron_class::Get(const YString& section, const YString& key) const {
  return YString(yinet::find_setting(section, key).value_or(""));
}
