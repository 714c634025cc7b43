#include <array>

#include "yinet/host/yobject.h"
#include "yinet/net/secure_socket.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/script_frame.h"

// No parameters, no result: it works without any block, which is why it does not run in the frame for the others.
extern "C" void SECURESOCKETGLOBALSSLINIT(YObject* /*arguments*/) {
  yinet::run_guarded("SECURESOCKETGLOBALSSLINIT", [] { SecureSocket::globalSSLInit(); });
}

namespace yinet {
namespace {

constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"SECURESOCKETGLOBALSSLINIT",
      &SECURESOCKETGLOBALSSLINIT,
      "TLS",
      "Prepares the TLS library for use by several threads; a host calls it once at its start.",
      {},
      kTypeAny,
      "None: there is nothing that could fail.",
      {},
      {}}});

}  // namespace

std::span<const ScriptFunction> tls_functions() { return kFunctions; }

}  // namespace yinet
