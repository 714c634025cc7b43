#pragma once

// The record that decoding builds for each part of a mail. The keys of its result are those of mail_keys.h.

#include <string_view>

#include "yinet/host/yobject.h"

namespace yinet {

// Its header fields stand under their own names, and these.
namespace part {
inline constexpr std::string_view kHeader = "Header";  // copy of the fields, when asked for
inline constexpr std::string_view kContentType = "Content-Type";
inline constexpr std::string_view kMedia = "Content-Type_Media";
inline constexpr std::string_view kSubtype = "Content-Type_Subtype";
inline constexpr std::string_view kContentDisposition = "Content-Disposition";
inline constexpr std::string_view kTransferEncoding = "Content-Transfer-Encoding";
inline constexpr std::string_view kBoundary = "boundary";
inline constexpr std::string_view kCharset = "charset";
inline constexpr std::string_view kName = "Name";
inline constexpr std::string_view kFile = "File";
inline constexpr std::string_view kFilename = "Filename";

// Entries under integer keys.
inline constexpr int kParts = 1;      // records of the sub-parts; flag 1 for alternatives
inline constexpr int kBody = 2;       // decoded text; flag 1 for the HTML of a mail with a single part
inline constexpr int kFileEntry = 3;  // path of the file with the content
inline constexpr int kEmbedded = 4;   // of a part that is a mail: its place among the embedded messages
}  // namespace part

// Put before each text that joins one already there.
inline constexpr std::string_view kEmbeddedMailHeading = "\r\n\r\nEingebettete Mail:\r\n\r\n";

}  // namespace yinet
