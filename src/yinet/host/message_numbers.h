#pragma once

// Numbers of the messages as named constants. A new number is a new row in message_numbers.inc and a row with its texts in
// the catalogue of its group.

namespace yinet::message {

#define YINET_MESSAGE(constant, number) inline constexpr int constant = number;
#include "yinet/host/message_numbers.inc"

// The level of most messages: what was asked for has failed. Others are named where they are used.
inline constexpr int kErrorLevel = 6;

inline constexpr int kAllNumbers[] = {
#define YINET_MESSAGE(constant, number) number,
#include "yinet/host/message_numbers.inc"
};

}  // namespace yinet::message
