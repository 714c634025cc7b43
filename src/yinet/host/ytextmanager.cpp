#include "yinet/host/ytextmanager.h"

#include "yinet/host/messages.h"
#include "yinet/host/text.h"

YTextManager_class YTextManager;

YString YTextManager_class::GetYText(int number, std::string_view p1, std::string_view p2, std::string_view p3,
                                     std::string_view p4, std::string_view p5, std::string_view p6, std::string_view p7,
                                     std::string_view p8, std::string_view p9) const {
  return YString(yinet::formatted(yinet::message_template(number), p1, p2, p3, p4, p5, p6, p7, p8, p9));
}
