#pragma once

// Keys of the mail record that composing reads and decoding writes, and of a recipient. Umlauts are Windows-1252.

#include <cstdint>
#include <string_view>

namespace yinet {

namespace mail_key {
inline constexpr std::string_view kSender = "ABSENDER";
inline constexpr std::string_view kSenderName = "ABSENDERNAME";
inline constexpr std::string_view kSubject = "BETREFF";
inline constexpr std::string_view kText = "NACHRICHT";  // of an HTML mail: its plain alternative
inline constexpr std::string_view kTo = "EMPF\xC4NGER";
inline constexpr std::string_view kCc = "KOPIE";
inline constexpr std::string_view kBcc = "BLINDKOPIE";
inline constexpr std::string_view kMailId = "MAILID";
inline constexpr std::string_view kAttachments = "ANLAGEN";
inline constexpr std::string_view kProfile = "PROFIL";
// Only decoding writes these.
inline constexpr std::string_view kOriginalRecipients = "ORIGEMPF\xC4NGER";
inline constexpr std::string_view kReplyAddress = "AntwortAdresse";
inline constexpr std::string_view kSent = "GESENDET";
inline constexpr std::string_view kArchiveId = "MAILARCHIVID";
inline constexpr std::string_view kHeader = "Header";
inline constexpr std::string_view kPartInformation = "PARTINFORMATION";

inline constexpr std::string_view kError = "_Error_";  // written

// Flag of a member that is no file of the mail but a text that decoding made one of.
inline constexpr std::uint8_t kGeneratedFile = 1;

inline constexpr std::string_view kEmailAddress = "EmailAddress";
inline constexpr std::string_view kFriendlyName = "FriendlyName";
}  // namespace mail_key

inline constexpr int kRecipientTo = 0;
inline constexpr int kRecipientCc = 1;
inline constexpr int kRecipientBcc = 2;

}  // namespace yinet
