#pragma once

// Writes a decoded mail out as files for scripts that work with files: the attachments and the text, in one folder under
// the temporary one that always holds the last mail only. Calls of one process wait for each other, so that none empties
// the folder while another fills it.

#include <string>
#include <string_view>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/yobject.h"

namespace yinet {

inline constexpr std::string_view kMailFilesFolder = "TEMP:~EML\\";

// Moves the members that "ANLAGEN" lists, and "NACHRICHT", from the record into files. The list of names stays. A file
// that cannot be written is passed over; its member goes all the same, the text stays. False, and the record untouched,
// when the folder cannot be made or emptied, which is raised as message 21072.
bool write_mail_files(YObject& record);

struct SavedMailFile {
  std::string name;   // as the record has it; of the text: the name made from the subject
  std::string path;   // where it went, with "_2", "_3" ... when the name was in use; empty when it could not be written
  std::string error;  // the system's reason then
};
// For people: writes attachments and text into any folder, which is made when it is missing, under names that a terminal
// and a folder can show (see safe_file_name). The text is UTF-8, and so are texts that decoding made files of, those
// with a byte order mark. Existing files are left alone. The record stays as it is.
YINET_API std::vector<SavedMailFile> save_mail_files(const YObject& record, const YString& folder);

// The name of the text's file, from the subject: its first 20 characters, of which letters, digits and a few others stay.
std::string mail_text_file_name(std::string_view subject);

}  // namespace yinet
