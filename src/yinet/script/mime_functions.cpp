// MIME_DEKODIERE: one mail, from a file or a text, into a record.

#include <array>

#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/yobject.h"
#include "yinet/mime/mail_files.h"
#include "yinet/mime/ymime_message.h"
#include "yinet/script/families.h"
#include "yinet/script/functions.h"
#include "yinet/script/parameter_keys.h"
#include "yinet/script/script_frame.h"
#include "yinet/script/table_rows.h"

namespace yinet {
namespace {

class ScriptMessage final : public YMIMEMessage {
 public:
  ScriptMessage() : YMIMEMessage(YString(), 0, kUsualBodySize, 0) {
    m_IsHTML = setting_flag(settings::kMailOriginalTo);
  }
};

void mime_dekodiere(YObject& parameters) {
  const auto options = static_cast<unsigned long>(parameters.GetInteger(key::kOptions));
  YObject& mail = parameters.Ensure<YObject>(key::kMail);
  ScriptMessage message;
  const bool decoded = message.Decode(parameters.GetString(key::kMailFile), &mail, options);
  const bool has_folder = (options & kDecodeWriteFiles) == 0 || write_mail_files(mail);
  store_result(parameters, decoded && has_folder);
}

constexpr std::array kParameters = {
    in_text(key::kMailFile, "Path of the mail file; with option 8 the text of the mail may stand here itself."),
    ScriptParameter{.key = key::kMail,
                    .type = kTypeObject,
                    .direction = Direction::in_out,
                    .default_value = "",
                    .meaning = "Receives the decoded mail: BETREFF, ABSENDER, NACHRICHT, ANLAGEN and so on."},
    in_number(key::kOptions, "0",
              "Sum of: 1 writes attachments and text to files in TEMP:~EML, 2 adds the header fields, 4 gives a short "
              "record, 8 only describes the parts.")};
constexpr std::array kMessages = {
    message::kScriptFunctionFailed, message::kTemporaryFolderUnusable, message::kFileNameRefused,
    message::kMailFileEmpty,        message::kMailFolderFailed,        message::kMailAttachmentNotWritten,
    message::kMailFileTooLarge,     message::kMailNameParameter,       message::kMailNameParameterDecoded,
    message::kMailCharsetParameter, message::kMailFileParameter,       message::kMailFileParameterDecoded,
    message::kMailHeaderTrace};
constexpr std::array<std::string_view, 1> kExample = {"pEMLDatei=examples/angebot.eml"};
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"MIME_DEKODIERE", &MIME_DEKODIERE, "Mail", "Takes a received mail apart into text, addresses and attachments.",
      kParameters, kTypeBool, "True when the mail was there and could be read.", kMessages, kExample}});

}  // namespace

std::span<const ScriptFunction> mime_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(MIME_DEKODIERE, yinet::mime_dekodiere)
