#include "yinet/net/tls_context.h"

#include <openssl/err.h>

#include <array>
#include <utility>

#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"

namespace yinet {
namespace {

constexpr auto kVersions = std::to_array<std::pair<std::string_view, int>>(
    {{"1.0", TLS1_VERSION}, {"1.1", TLS1_1_VERSION}, {"1.2", TLS1_2_VERSION}, {"1.3", TLS1_3_VERSION}});

bool apply_minimum_version(SSL_CTX* context) {
  const std::string setting = setting_text(settings::kTlsMinimumVersion);
  const std::string_view wanted = trimmed(setting);
  if (wanted.empty()) return true;
  for (const auto& [name, version] : kVersions) {
    if (wanted == name) return SSL_CTX_set_min_proto_version(context, version) == 1;
  }
  ERR_raise_data(ERR_LIB_SSL, ERR_R_PASSED_INVALID_ARGUMENT, "no TLS version: %s", std::string(wanted).c_str());
  return false;
}

bool apply_cipher_list(SSL_CTX* context) {
  const std::string setting = setting_text(settings::kTlsCipherList);
  return setting.empty() || SSL_CTX_set_cipher_list(context, setting.c_str()) == 1;
}

ContextHandle make_context(const SSL_METHOD* method) {
  ContextHandle context(SSL_CTX_new(method));
  return context && apply_tls_policy(context.get()) ? std::move(context) : nullptr;
}

std::string system_path(std::string_view name) { return YFileManager.ResolveSystemPath(name); }

}  // namespace

bool apply_tls_policy(SSL_CTX* context) { return apply_minimum_version(context) && apply_cipher_list(context); }

ContextHandle make_client_context() { return make_context(TLS_client_method()); }
ContextHandle make_server_context() { return make_context(TLS_server_method()); }

bool trust_folder(SSL_CTX* context, std::string_view folder) {
  const std::string path = folder.empty() ? std::string() : system_path(folder);
  return SSL_CTX_load_verify_locations(context, nullptr, path.c_str()) == 1;
}

bool trust_file(SSL_CTX* context, std::string_view file) {
  return SSL_CTX_load_verify_locations(context, system_path(file).c_str(), nullptr) == 1;
}

bool trust_system(SSL_CTX* context) { return SSL_CTX_set_default_verify_paths(context) == 1; }

bool use_certificate(SSL_CTX* context, std::string_view certificate_file, std::string_view key_file) {
  const std::string certificate = system_path(certificate_file);
  const std::string key = key_file.empty() ? certificate : system_path(key_file);
  return SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) == 1 &&
         SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) == 1 &&
         SSL_CTX_check_private_key(context) == 1;
}

}  // namespace yinet
