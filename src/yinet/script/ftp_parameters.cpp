#include "yinet/script/ftp_parameters.h"

#include "yinet/host/setting_table.h"
#include "yinet/host/yfile.h"

namespace yinet {

ProxyLogin proxy_login(const YObject& parameters) {
  const auto either = [&](std::string_view parameter, const Setting& setting) {
    return parameters.Exist(parameter) ? parameters.GetString(parameter) : YString(setting_text(setting));
  };
  return {either(key::kProxyUser, settings::kProxyUser), either(key::kProxyPassword, settings::kProxyPassword)};
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

YString download_target(const YObject& parameters, const YString& folder, const YString& remote) {
  if (folder.IsEmpty()) return {};
  const YString name = parameters.GetString(key::kLocalName);
  return folder + (name.IsEmpty() ? YFile::ExtractNameAndExtension(local_name(remote)) : name);
}

}  // namespace yinet
