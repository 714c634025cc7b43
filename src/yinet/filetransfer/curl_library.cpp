#include "yinet/filetransfer/curl_library.h"

namespace yinet {

bool LibcurlInitializer::succeeded() {
  static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return initialized;
}

}  // namespace yinet
