// MIME_DEKODIERE: one mail, from a file or a text, into a record.

#include <array>

#include "yinet/host/setting_table.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/mail_files.h"
#include "yinet/mime/ymime_message.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"

namespace yinet {
namespace {

constexpr int kWriteFiles = 1;  // of "pOptionen"; the other values are the flags of Decode
constexpr int kMaxBodySize = 10240;

class ScriptMessage final : public YMIMEMessage {
 public:
  ScriptMessage() : YMIMEMessage(YString(), 0, kMaxBodySize, 0) {
    m_IsHTML = setting_flag(settings::kMailOriginalTo);
  }
};

void mime_dekodiere(YObject& parameters) {
  const int options = parameters.GetInteger(key::kOptions);
  YObject& mail = parameters.Ensure<YObject>(key::kMail);
  ScriptMessage message;
  const bool decoded = message.Decode(parameters.GetString(key::kMailFile), &mail, static_cast<unsigned long>(options));
  const bool has_folder = (options & kWriteFiles) == 0 || write_mail_files(mail);
  store_result(parameters, decoded && has_folder);
}

constexpr std::array kParameters = {
    ScriptParameter{.key = key::kMailFile, .type = kTypeString, .direction = Direction::in, .default_value = "",
                    .meaning = "Path of the mail file; with option 8 the text of the mail may stand here itself."},
    ScriptParameter{.key = key::kMail, .type = kTypeObject, .direction = Direction::in_out, .default_value = "",
                    .meaning = "Receives the decoded mail: BETREFF, ABSENDER, NACHRICHT, ANLAGEN and so on."},
    ScriptParameter{.key = key::kOptions, .type = kTypeInteger, .direction = Direction::in, .default_value = "0",
                    .meaning = "Sum of: 1 writes attachments and text to files in TEMP:~EML, 2 adds the header fields, "
                               "4 gives a short record, 8 only describes the parts."}};
constexpr std::array<int, 13> kMessages = {21001, 21005, 21006, 21071, 21072, 21077, 21078,
                                           21081, 21082, 21083, 21084, 21085, 21086};
constexpr std::array<std::string_view, 1> kExample = {"pEMLDatei=examples/angebot.eml"};
constexpr std::array kFunctions = {
    ScriptFunction{.name = "MIME_DEKODIERE", .entry = &MIME_DEKODIERE, .family = "Mail",
                   .summary = "Takes a received mail apart into text, addresses and attachments.",
                   .parameters = kParameters, .result_type = kTypeBool,
                   .result_meaning = "True when the mail was there and could be read.",
                   .messages = kMessages, .example = kExample}};

}  // namespace

std::span<const ScriptFunction> mime_functions() { return kFunctions; }

}  // namespace yinet

void MIME_DEKODIERE(YObject* arguments) {
  yinet::run_script_function("MIME_DEKODIERE", arguments, yinet::mime_dekodiere);
}
