#pragma once

// The folder behind "TEMP:". Internal to the file layer. Safe from several threads.

#include <string>

#include "yinet/host/descriptor.h"

namespace yinet {

struct TemporaryFolder {
  Descriptor descriptor;  // of the folder that was checked; closed when there is no usable one, which was logged
  std::string path;       // absolute, without a separator at its end
};

// The folder of this process, made when it is not there yet.
TemporaryFolder temporary_folder();

// The path that temporary_folder() last gave to anyone in this process; empty before the first use.
std::string known_temporary_folder();

}  // namespace yinet
