#include "yinet/script/ftp_parameters.h"

#include "yinet/host/yenviron.h"
#include "yinet/host/yfile.h"

namespace yinet {
namespace {

constexpr std::string_view kProxySection = "Internet";

}  // namespace

ProxyLogin proxy_login(const YObject& parameters) {
  const auto either = [&](std::string_view parameter, std::string_view setting) {
    return parameters.Exist(parameter) ? parameters.GetString(parameter)
                                       : YEnviron.Get(YString(kProxySection), YString(setting));
  };
  return {either(key::kProxyUser, "ProxyBenutzer"), either(key::kProxyPassword, "ProxyPasswort")};
}

YString local_name(const YString& name) {
  YString text = name;
  text.ReplaceChar('/', '\\');
  return text;
}

YString target_folder(const YObject& parameters) {
  const YString wanted = parameters.GetString(key::kTargetFolder);
  const YString folder = YFileManager.ResolvePath(wanted.IsEmpty() ? YString(".") : wanted);
  return folder.IsEmpty() || folder.EndsWith("\\") || folder.EndsWith("/") ? folder : folder + "\\";
}

YString target_name(const YObject& parameters, const YString& remote) {
  const YString name = parameters.GetString(key::kLocalName);
  return name.IsEmpty() ? YFile::ExtractNameAndExtension(local_name(remote)) : name;
}

}  // namespace yinet
