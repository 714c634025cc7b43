#pragma once

// Internal: what the families of FTP functions have in common.

#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/table_rows.h"

namespace yinet {

struct ProxyLogin {
  YString user;
  YString password;
};

// The host's own values serve only where the script says nothing; an empty text is something.
ProxyLogin proxy_login(const YObject& parameters);

// A name with "\" as separator, as local files have it.
YString local_name(const YString& name);

// The local folder for downloads, with a separator at its end: the working folder when the script names none. Empty when the
// name means nothing here, which must not turn into the root.
YString target_folder(const YObject& parameters);

// The local file for the remote file `remote`, in that folder; empty when the folder is.
YString download_target(const YObject& parameters, const YString& folder, const YString& remote);

inline constexpr ScriptParameter kUserRow = in_text(key::kUser, "Login name.");
inline constexpr ScriptParameter kPasswordRow = in_password(key::kPassword, "Password.");
inline constexpr ScriptParameter kRemoteFileRow = in_text(key::kFileName, "The file on the server.");
inline constexpr ScriptParameter kLocalNameRow =
    in_text(key::kLocalName, "Name of the local file; that of the remote file when empty.");
inline constexpr ScriptParameter kTargetFolderRow =
    in_text(key::kTargetFolder, "Local folder for it; the working folder when empty.");
inline constexpr ScriptParameter kProxyAddressRow = in_text(key::kProxyAddress, "Proxy as host or host:port.");
inline constexpr ScriptParameter kProxyUserRow =
    in_text(key::kProxyUser, "User of the proxy; the setting Internet/ProxyBenutzer when absent.");
inline constexpr ScriptParameter kProxyPasswordRow =
    in_password(key::kProxyPassword, "Password of the proxy; the setting Internet/ProxyPasswort when absent.");

}  // namespace yinet
