#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

// DNS lookup.
std::span<const MessageText> dns_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kDnsLibraryFailed, 6, "Die DNS-Bibliothek kann nicht eingerichtet werden (Fehler $1$).",
       "The DNS library cannot be set up (error $1$).",
       "Check the servers in \"DNS\"/\"Server\" and the system's resolver configuration."},
      {kDnsFunctionMissing, 6, "In der DNS-Bibliothek fehlt die Funktion $1$ (Fehler $2$).",
       "The DNS library lacks the function $1$ (error $2$).",
       "Repair the installation: the DNS library does not fit this program."},
      {kDnsQueryFailed, 6, "Die DNS-Anfrage nach $1$ ist fehlgeschlagen (Status $2$).",
       "The DNS query for $1$ failed (status $2$).",
       "9003: no such name; 9501: no record of that kind; 9002: server failure; 9005: refused; 1460: no answer in time "
       "(\"DNS\"/\"Zeitlimit\"); 123: not a valid name."},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
