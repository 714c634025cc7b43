#pragma once

// OpenSSL's error queue of the calling thread, and the texts made from it.

#include <string>

namespace yinet {

// The first queued error as OpenSSL words it ("error:8000006F:system library::Connection refused"), empty when there is
// none. The queue is empty afterwards: entries left behind would be taken for a later operation's.
std::string take_tls_error();

// The same; without a queued error the system's text for `system_error` (an errno value, 0 for none). Sockets that the
// peer has reset leave their reason there and not in the queue.
std::string take_error_text(int system_error);

}  // namespace yinet
