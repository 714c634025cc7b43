#include "yinet/script/yinet_call.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "yinet/host/codepage.h"
#include "yinet/host/yjson.h"
#include "yinet/script/call_function.h"

namespace {

using namespace yinet;

static_assert(static_cast<int>(CallStatus::succeeded) == YINET_SUCCEEDED);
static_assert(static_cast<int>(CallStatus::failed) == YINET_FAILED);
static_assert(static_cast<int>(CallStatus::wrong_call) == YINET_WRONG_CALL);

std::string error_record(const std::string& problem) {
  YObject record;
  record.StoreText("error", ansi_from_utf8_lossy(problem));
  return YJSON::Write(record);
}

char* owned_copy(const std::string& text) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

std::string_view view_of(const char* text) { return text ? std::string_view(text) : std::string_view(); }

}  // namespace

int yinet_call(const char* function, const char* json_in, char** json_out) {
  if (json_out) *json_out = nullptr;
  try {
    const JsonCallOutcome outcome = call_function_json(view_of(function), view_of(json_in));
    const bool wrong = outcome.status == CallStatus::wrong_call;
    if (json_out) *json_out = owned_copy(wrong ? error_record(outcome.problem) : outcome.json);
    return static_cast<int>(outcome.status);
  } catch (...) {
    return YINET_FAILED;
  }
}

void yinet_free(char* text) { std::free(text); }
