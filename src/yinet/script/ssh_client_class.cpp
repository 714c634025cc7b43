#include "yinet/script/ssh_client_class.h"

#include "yinet/host/yobject.h"
#include "yinet/host/yscript.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/ssh_functions.h"

namespace yinet {
namespace {

// Callers of the FTPS functions expect 1 or 0.
void store_as_number(YObject& parameters) { store_result(parameters, parameters.GetBool(key::kResult) ? 1 : 0); }

// Before any host can call, so that a host's own class goes before it. Lambdas: the type of a plain function would become
// an exported name.
[[maybe_unused]] const bool g_registered = [] {
  register_script_function(ssh_client::kClass, ssh_client::kDownload, [](YObject& parameters) {
    YObject call = parameters;  // the caller's own keep their values
    if (call.GetString(key::kTargetFolder).IsEmpty()) call.StoreText(key::kTargetFolder, ".");
    call.Store<bool>(key::kComplete, true);
    ssh_download(call);
    store_result(parameters, call.GetBool(key::kResult) ? 1 : 0);
  });
  register_script_function(ssh_client::kClass, ssh_client::kUpload, [](YObject& parameters) {
    ssh_upload(parameters);
    store_as_number(parameters);
  });
  register_script_function(ssh_client::kClass, ssh_client::kDelete, [](YObject& parameters) {
    ssh_delete(parameters);
    store_as_number(parameters);
  });
  return true;
}();

}  // namespace
}  // namespace yinet
