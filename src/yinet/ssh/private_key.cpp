#include "yinet/ssh/private_key.h"

#include <algorithm>
#include <cstring>

#include "yinet/net/sigpipe_guard.h"

namespace yinet {
namespace {

struct Question {
  const std::string& password;
  bool asked = false;
};

int answer(const char* /*prompt*/, char* buffer, std::size_t size, int /*echo*/, int /*verify*/, void* data) {
  auto& question = *static_cast<Question*>(data);
  question.asked = true;
  if (question.password.empty() || question.password.size() >= size) return -1;
  std::memcpy(buffer, question.password.c_str(), question.password.size() + 1);
  return 0;
}

}  // namespace

KeyFile read_private_key(const std::string& path, const std::string& password) {
  const SigpipeGuard no_sigpipe;
  Question question{password};
  KeyFile file;
  ssh_key key = nullptr;
  if (ssh_pki_import_privkey_file(path.c_str(), nullptr, &answer, &question, &key) == SSH_OK) file.key.reset(key);
  file.asked = question.asked;
  return file;
}

}  // namespace yinet
