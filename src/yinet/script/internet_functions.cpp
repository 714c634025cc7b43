// INTERNET_*: what a URL of any protocol leads to, as a file or as a text, and searching the web.

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "yinet/filetransfer/curl_library.h"
#include "yinet/filetransfer/transfer_formats.h"
#include "yinet/filetransfer/transfer_url.h"
#include "yinet/filetransfer/yinet_file_transfer.h"
#include "yinet/host/codepage.h"
#include "yinet/host/message_numbers.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/host/yobject.h"
#include "yinet/script/families.h"
#include "yinet/script/ftp_parameters.h"
#include "yinet/script/functions.h"
#include "yinet/script/response_file.h"
#include "yinet/script/script_frame.h"

namespace yinet {
namespace {

constexpr int kFailureLevel = 6;

// Fetches `address` into the file `target`, redirects followed. What is no URL fails for what it lacks: its protocol, one
// that is known, or the server.
bool fetch(std::string_view address, const YString& target) {
  const auto url = parse_transfer_url(address).value_or(TransferUrl{});
  const SecretScope no_password(url.password);
  YInetFileTransfer transfer;
  if (url.host.empty()) {
    const std::size_t scheme_end = address.find("://");
    if (scheme_end != std::string_view::npos && !transfer.SetProtocol(YString(address.substr(0, scheme_end))))
      return false;
  } else {
    if (!transfer.SetProtocol(YString(url.scheme)) || !transfer.SetServer(YString(url.host))) return false;
    transfer.SetUsername(YString(url.user));
    transfer.SetPassword(YString(url.password));
  }
  return transfer.DownloadToFile(YString(url.raw_path), target);
}

// The file's logical name; absent after a failure, which leaves no file.
std::optional<YString> fetch_to_temporary(std::string_view address) {
  auto file = write_response_file({});
  if (file && !fetch(address, *file)) {
    YFile::Delete(*file);
    return std::nullopt;
  }
  return file;
}

// The name of what a URL leads to, without query and fragment.
YString name_in(const YString& address) {
  const TransferUrl url = parse_transfer_url(address).value_or(TransferUrl{});
  const std::string_view path(url.raw_path);
  return YString(percent_decoded(path.substr(0, path.find_first_of("?#"))));
}

bool names_no_file(const YString& address) {
  const auto url = parse_transfer_url(address);
  return url && YFile::ExtractNameAndExtension(name_in(address)).IsEmpty();
}

void refuse(YObject& parameters, std::string_view reason) {
  YLog.Event(kFailureLevel, message::kTransferDownloadFileFailed, reason);
  store_result(parameters, false);
}

void internet_download(YObject& parameters) {
  const YString address = parameters.GetString(key::kUrl);
  if (names_no_file(address) && parameters.GetString(key::kLocalName).IsEmpty())
    return refuse(parameters, "the URL names no file, and \"pLokalerName\" is empty");
  const YString target = download_target(parameters, target_folder(parameters), name_in(address));
  const bool done = fetch(address, target);
  store_result(parameters, done);
  if (done) parameters.Store<YString>(key::kResponseFile, YString(replaced(target, "\\", "/")));
}

bool read_whole(const YString& name, YString& text) {
  YFile file(name);
  const bool fits = file.GetFileSize() <= setting_number(settings::kTransferTextLimit);
  if (fits && file.Open(kOpenExisting, kAccessRead) && file.ReadAll(text.str())) return true;
  text.Clear();
  YLog.Event(kFailureLevel, message::kTransferDownloadFileFailed,
             fits ? std::string(std::strerror(file.LastError())) : beyond_limit_text(settings::kTransferTextLimit));
  return false;
}

void internet_read(YObject& parameters) {
  YString& text = live_text(parameters, key::kText);
  text.Clear();
  const auto name = fetch_to_temporary(parameters.GetString(key::kUrl));
  store_result(parameters, name && read_whole(*name, text));
  if (name) YFile::Delete(*name);
}

void internet_search(YObject& parameters) {
  const std::string words = utf8_from_ansi(trimmed(parameters.GetString(key::kSearchWords)));
  const std::string address = setting_text(settings::kSearchUrl);
  if (words.empty()) return refuse(parameters, "\"pSuchbegriffe\" holds no words");
  if (address.find("$1$") == std::string::npos)
    return refuse(parameters, "\"Internet\"/\"SuchUrl\" has no $1$ for the words");
  auto file = fetch_to_temporary(formatted(address, encoded_query(words)));
  store_result(parameters, file.has_value());
  if (file) parameters.Store<YString>(key::kResponseFile, std::move(*file));
}

// --- The table --------------------------------------------------------------------------------------------------------------

constexpr ScriptParameter kUrlRow =
    in_text(key::kUrl, "The address: http, https, ftp, ftps or sftp, with user and password where they are needed.");
constexpr std::array kDownloadParameters = {
    kUrlRow, in_text(key::kLocalName, "Name of the local file; that in the URL when empty."), kTargetFolderRow,
    out_text(key::kResponseFile, "The local file; stored on success only.")};
constexpr std::array kReadParameters = {kUrlRow,
                                        out_text(key::kText, "The bytes of the answer; empty after a failure.")};
constexpr std::array kSearchParameters = {
    in_text(key::kSearchWords, "The words to search for."),
    out_text(key::kResponseFile, "A new temporary file with the answer's page; stored on success only.")};

constexpr std::array kMessages = {message::kScriptFunctionFailed,       message::kTransferNoProtocol,
                                  message::kTransferProtocolUnknown,    message::kTransferLocalFileNotCreated,
                                  message::kTransferDownloadFileFailed, message::kTransferStatus,
                                  message::kHttpResponseFileFailed};
constexpr std::array<std::string_view, 2> kDownloadExample = {"pUrl=https://www.example.com/list.pdf",
                                                              "pZielverzeichnis=TEMP:"};
constexpr std::array<std::string_view, 1> kReadExample = {"pUrl=https://www.example.com/"};
constexpr std::array<std::string_view, 1> kSearchExample = {"pSuchbegriffe=DIN 5008"};

constexpr std::string_view kResultMeaning =
    "True when the answer is there; over HTTP with status 200, redirects followed.";
constexpr auto kFunctions = std::to_array<ScriptFunction>(
    {{"INTERNET_DOWNLOAD", &INTERNET_DOWNLOAD, "Internet", "Fetches what a URL leads to into a file.",
      kDownloadParameters, kTypeBool, kResultMeaning, kMessages, kDownloadExample},
     {"INTERNET_LESEDATEI", &INTERNET_LESEDATEI, "Internet", "Fetches what a URL leads to into a text.",
      kReadParameters, kTypeBool, kResultMeaning, kMessages, kReadExample},
     {"INTERNET_WEBSUCHE", &INTERNET_WEBSUCHE, "Internet",
      "Searches the web at the address in the setting Internet/SuchUrl.", kSearchParameters, kTypeBool, kResultMeaning,
      kMessages, kSearchExample}});

}  // namespace

std::span<const ScriptFunction> internet_functions() { return kFunctions; }

}  // namespace yinet

YINET_SCRIPT_FUNCTION(INTERNET_DOWNLOAD, yinet::internet_download)
YINET_SCRIPT_FUNCTION(INTERNET_LESEDATEI, yinet::internet_read)
YINET_SCRIPT_FUNCTION(INTERNET_WEBSUCHE, yinet::internet_search)
