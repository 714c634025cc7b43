#include "yinet/mime/attachment_file.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "yinet/host/message_numbers.h"
#include "yinet/host/text.h"
#include "yinet/host/yfile.h"
#include "yinet/host/ylog.h"
#include "yinet/mime/mail_messages.h"

namespace yinet {

namespace {

constexpr std::string_view kTemporaryName = "TEMP:MAIL$1:04$.TMP";

YString temporary_name(int number) { return YString(kTemporaryName).Format(number); }

}  // namespace

std::shared_ptr<const AttachmentFile> AttachmentFile::create(std::string_view bytes, const YString& name,
                                                             int& counter) {
  YFile file;
  for (;; ++counter) {
    file.SetName(temporary_name(counter));
    if (file.Open(kCreateNew, kAccessWrite)) break;
    if (file.LastError() == EEXIST && counter < std::numeric_limits<int>::max()) continue;
    report_unsendable_attachment(file.GetName(), file.LastError());
    return nullptr;
  }
  auto attachment = std::make_shared<const AttachmentFile>(YFileManager.ResolvePath(file.GetName()), name);
  if (file.Write(bytes) && file.Close()) return attachment;
  report_unsendable_attachment(file.GetName(), file.LastError());
  return nullptr;
}

AttachmentFile::~AttachmentFile() { YFile::Delete(path_); }

}  // namespace yinet
