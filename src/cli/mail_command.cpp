#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "command.h"
#include "mail_compose.h"
#include "terminal.h"
#include "yinet/host/codepage.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/shown_text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/yjson.h"
#include "yinet/mime/mail_files.h"
#include "yinet/mime/mail_parts.h"
#include "yinet/mime/ymime_message.h"
#include "yinet/script/call_function.h"
#include "yinet/script/parameter_keys.h"

namespace yinet::cli {
namespace {

constexpr const char* kDecodeExamples = R"(Examples:
  yinet mail decode examples/angebot.eml
  yinet mail decode angebot.eml --out angebot        saves text and attachments into the folder
  yinet mail decode - --json < angebot.eml           prints the whole record
  yinet --set Mail/Lesefreundlich=0 mail decode x.eml    as scripts decode it

Exit status: 0 when the mail could be read, 1 when not, 2 for a wrong call.)";

constexpr const char* kPartsExamples = R"(Examples:
  yinet mail parts examples/angebot.eml

Exit status: 0 when the mail could be read, 1 when not, 2 for a wrong call.)";

constexpr const char* kComposeExamples =
    R"(Examples:
  yinet mail compose examples/anfrage.json
  yinet mail compose examples/anfrage.json -o anfrage.eml
  yinet mail compose - < examples/anfrage.json | yinet mail decode -

RECORD is a JSON object with the keys of a mail; this one has an attachment of its own and one from the disk:
  {
    "ABSENDER": "eva@example.org",
    "EMPF)"
    "\xC3\x84"
    R"(NGER": ["max@example.org", "lager@example.org"],
    "KOPIE": "einkauf@example.org",
    "BETREFF": "Angebot",
    "NACHRICHT": "Guten Tag,\nanbei unser Angebot.",
    "ANLAGEN": ["preise.csv", "/home/eva/angebot.pdf"],
    "preise.csv": {"$base64": "U3R1aGw7NDksOTAK"}
  }
BLINDKOPIE and MAILID may be there too; a file Nachricht.htm on the disk becomes the mail's HTML text. Recipients are best
given as bare addresses: a name goes into the header as it stands, its address in double brackets. The mail is written as
SMTP takes it: lines that begin with a dot have a second one.

Exit status: 0 when the mail was written with all it names, 1 when not, 2 for a wrong call.)";

constexpr int kAllOptions = kDecodeWriteFiles + kDecodeKeepHeader + kDecodeShort + kDecodeInformation;

struct DecodeArguments {
  std::string file;
  std::string out;
  int options = 0;
  bool json = false;
};

// The mail in a private temporary folder: files that decoding makes on the way do not appear beside the user's own, and
// standard input can be decoded like a file. Gone with the object.
class MailCopy {
 public:
  explicit MailCopy(std::string_view bytes) : folder_("TEMP:decode-" + std::to_string(getpid()) + "/") {
    YFileManager.CreateFolder(folder_);
    YFileManager.EmptyFolder(folder_);  // of what a process of this number may have left there
    YFile file(name());
    made_ = file.Open(kCreateAlways, kAccessWrite) && file.Write(bytes) && file.Close();
  }
  MailCopy(const MailCopy&) = delete;
  MailCopy& operator=(const MailCopy&) = delete;
  ~MailCopy() {
    YFileManager.EmptyFolder(folder_);
    rmdir(YFileManager.ResolveSystemPath(folder_).c_str());
  }
  [[nodiscard]] bool made() const { return made_; }
  // Attachments, which always have an extension, can be called whatever they like.
  [[nodiscard]] YString name() const { return folder_ + "mail"; }

 private:
  YString folder_;
  bool made_ = false;
};

std::unique_ptr<MailCopy> copy_mail(const std::string& file) {
  std::string problem;
  const auto bytes = read_file(file, problem);
  if (!bytes) {
    remark(problem);
    return nullptr;
  }
  if (bytes->empty()) {
    remark(file_title(file) + " is empty");
    return nullptr;
  }
  auto copy = std::make_unique<MailCopy>(*bytes);
  if (copy->made()) return copy;
  remark("the temporary folder takes no copy of the mail; see \"yinet messages 21005\"");
  return nullptr;
}

// People want mails decoded sensibly rather than as scripts have always seen them; --set still decides.
void decode_readably_by_default() {
  set_setting_default(settings::kMailReadable.section, settings::kMailReadable.name, "1");
}

// Text of a mail as one line, with a visible character where Windows-1252 lacks one.
std::string shown_text(std::string_view ansi) { return shown_utf8(with_shown_substitutes(utf8_from_ansi(ansi))); }

// The name of an attachment as it will stand on the disk.
std::string shown_name(std::string_view name) { return shown_utf8(with_shown_substitutes(name_to_utf8(name))); }

std::string listed(const YString& list) {
  std::string text;
  for (const std::string_view item : list.Items()) text += (text.empty() ? "" : ", ") + shown_text(item);
  return text;
}

// Lines of a text as they are; what could move the cursor or recolour the terminal is escaped.
std::string shown_lines(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines += shown_text(line) + "\n";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

void print_field(std::string_view label, const std::string& value) {
  if (!value.empty()) print(std::string(label) + std::string(9 - label.size(), ' ') + value + "\n");
}

void print_summary(const YObject& mail) {
  const YString name = mail.GetString("ABSENDERNAME");
  const std::string sender = shown_text(mail.GetString("ABSENDER"));
  print_field("Subject:", shown_text(mail.GetString("BETREFF")));
  print_field("From:", name.IsEmpty() ? sender : shown_text(name) + " <" + sender + ">");
  print_field("To:", listed(mail.GetString("EMPF\xC4NGER")));
  print_field("Cc:", listed(mail.GetString("KOPIE")));
  print_field("Date:", mail.GetString("GESENDET").str());
  if (const YString text = mail.GetString("NACHRICHT"); !text.IsEmpty()) print("\n" + shown_lines(text));
  const YString attachments = mail.GetString("ANLAGEN");
  if (attachments.IsEmpty()) return;
  print("\nAttachments:\n");
  for (const std::string_view attachment : attachments.Items()) {
    const auto* bytes = mail.Find<YBuffer>(attachment);
    print("  " + shown_name(attachment) + (bytes ? "  " + std::to_string(bytes->Size()) + " bytes" : "") + "\n");
  }
}

int save(const YObject& mail, const std::string& folder) {
  int code = kSucceeded;
  for (const SavedMailFile& file : save_mail_files(mail, YString(name_from_utf8(folder)))) {
    if (file.error.empty()) {
      remark("saved " + shown_name(file.name) + " as " + shown_name(file.path));
    } else {
      remark(shown_name(file.name) + " could not be saved: " + file.error);
      code = kFailed;
    }
  }
  return code;
}

int decode(const DecodeArguments& arguments) {
  const bool writes_files = (static_cast<unsigned long>(arguments.options) & kDecodeWriteFiles) != 0;
  if (writes_files && !arguments.out.empty())
    return wrong_call(
        "--out finds nothing to save after option 1, which moves text and attachments into a folder of its own");
  decode_readably_by_default();
  const auto copy = copy_mail(arguments.file);
  if (!copy) return kFailed;
  YObject record;
  record.Store<YString>(key::kMailFile, copy->name());
  record.Store<std::int32_t>(key::kOptions, arguments.options);
  const CallOutcome outcome = call_function("MIME_DEKODIERE", record);
  const YObject* mail = record.Find<YObject>(key::kMail);
  if (outcome.status != CallStatus::succeeded || mail == nullptr) {
    remark(file_title(arguments.file) + " could not be decoded");
    return kFailed;
  }
  if (arguments.json) print(YJSON::Write(*mail, 2) + "\n");
  else print_summary(*mail);
  if (writes_files) remark("text and attachments are in " + YFileManager.ResolveSystemPath(kMailFilesFolder));
  return arguments.out.empty() ? kSucceeded : save(*mail, arguments.out);
}

int list_parts(const std::string& file) {
  decode_readably_by_default();
  const auto copy = copy_mail(file);
  if (!copy) return kFailed;
  const auto parts = list_mail_parts(copy->name());
  if (parts.empty()) {
    remark(file_title(file) + " could not be decoded");
    return kFailed;
  }
  for (const MailPartEntry& part : parts) {
    std::string line(2 * static_cast<std::size_t>(part.depth), ' ');
    line += part.type.empty() ? "(no type)" : shown(part.type);
    if (!part.name.empty()) line += "  " + shown_name(part.name);
    if (!part.charset.empty()) line += "  " + shown(part.charset);
    if (!part.encoding.empty()) line += "  " + shown(part.encoding);
    if (part.size >= 0) line += "  " + std::to_string(part.size) + " bytes";
    print(line + "\n");
  }
  return kSucceeded;
}

}  // namespace

Command add_mail_command(CLI::App& program) {
  CLI::App* mail = program.add_subcommand("mail", "Take mails apart, or compose one");
  mail->require_subcommand(1);
  mail->footer(kDecodeExamples);

  const auto arguments = std::make_shared<DecodeArguments>();
  CLI::App* decode_app = mail->add_subcommand("decode", "Show a mail: text, addresses and attachments");
  decode_app->footer(kDecodeExamples);
  decode_app->add_option("FILE", arguments->file, "Mail file, \"-\" for standard input")->required()->type_name("");
  decode_app->add_option("--out", arguments->out, "Save text and attachments into this folder")->type_name("FOLDER");
  decode_app
      ->add_option("--options", arguments->options, "The function's options; see \"yinet functions MIME_DEKODIERE\"")
      ->type_name("N")
      ->check(CLI::Range(0, kAllOptions));
  decode_app->add_flag("--json", arguments->json, "Print the whole record as JSON");

  const auto parts_file = std::make_shared<std::string>();
  CLI::App* parts_app = mail->add_subcommand("parts", "List the parts of a mail, one line each");
  parts_app->footer(kPartsExamples);
  parts_app->add_option("FILE", *parts_file, "Mail file, \"-\" for standard input")->required()->type_name("");

  const auto compose_arguments = std::make_shared<ComposeArguments>();
  CLI::App* compose_app = mail->add_subcommand("compose", "Compose a mail from a record");
  compose_app->footer(kComposeExamples);
  compose_app->add_option("RECORD", compose_arguments->record, "JSON file, \"-\" for standard input")
      ->required()
      ->type_name("");
  compose_app
      ->add_option("-o,--out", compose_arguments->out, "File for the mail; standard output when missing or \"-\"")
      ->type_name("FILE");

  return {mail, [=] {
            if (decode_app->parsed()) return decode(*arguments);
            return parts_app->parsed() ? list_parts(*parts_file) : compose_mail(*compose_arguments);
          }};
}

}  // namespace yinet::cli
