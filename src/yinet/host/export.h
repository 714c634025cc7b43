#pragma once

// Marks what libyinet.so offers to its users; everything else stays hidden inside the library.
#define YINET_API __attribute__((visibility("default")))
