#pragma once

#include <memory>
#include <string_view>

#include "yinet/host/ystring.h"

namespace yinet {

// A temporary file that holds an attachment given in a mail record. Removes it at its end.
class AttachmentFile {
 public:
  // Writes the bytes to a new "TEMP:MAIL$1:04$.TMP", exclusively created; `counter` is where to look for a free number,
  // and is left there. `name` is what the attachment is called in the mail; empty: by the file's name. Null, nothing left
  // behind and the failure logged when the file cannot be written.
  static std::shared_ptr<const AttachmentFile> create(std::string_view bytes, const YString& name, int& counter);

  AttachmentFile(YString path, YString name) : path_(std::move(path)), name_(std::move(name)) {}
  AttachmentFile(const AttachmentFile&) = delete;
  AttachmentFile& operator=(const AttachmentFile&) = delete;
  ~AttachmentFile();

  [[nodiscard]] const YString& path() const { return path_; }  // resolved
  [[nodiscard]] const YString& name() const { return name_; }

 private:
  YString path_;
  YString name_;
};

}  // namespace yinet
