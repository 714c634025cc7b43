#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

// Mail and charset conversion.
std::span<const MessageText> mail_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kMailAttachmentsTooLarge, 6,
       "Die Anlagen der Mail \"$3$\" an $2$ (Profil $1$) sind mit $4$ KB zu gro\xDF; die Mail geht ohne die \xFC"
       "berz\xE4hligen Anlagen.",
       "The attachments of the mail \"$3$\" to $2$ (profile $1$) are too large ($4$ KB); the mail goes without those "
       "beyond the limit.",
       "Send fewer attachments, or raise the largest mail size of the sending profile."},
      {kMailFileEmpty, 6, "Die Maildatei $1$ ist leer.", "The mail file $1$ is empty.",
       "Fetch the mail again: its file was never written or was cut."},
      {kMailFolderFailed, 6, "Das Verzeichnis $1$ f\xFCr die Mail kann nicht angelegt oder geleert werden.",
       "The folder $1$ for the mail cannot be created or emptied.", "Check free space and rights in the temporary folder."},
      {kMailLineBreakReplaced, 6,
       "Ein Zeilenumbruch, Nullzeichen oder Anf\xFChrungszeichen in der Angabe \"$1$\" der Mail wurde ersetzt: $2$",
       "A line break, NUL or quotation mark in the value \"$1$\" of the mail was replaced: $2$",
       "Check where the value comes from: it could have carried further header lines."},
      {kMailAttachmentFailed, 6, "Die Anlage $1$ kann nicht gesendet werden: $2$",
       "The attachment $1$ cannot be sent: $2$",
       "Check the path and the rights of the file. \"Mail\"/\"VersandLimit\" bounds the size of a composed mail."},
      {kMailComposeFailed, 6, "Die Mail konnte nicht zusammengestellt werden: $1$",
       "The mail could not be composed: $1$", "The mail was too large for the memory; send it in parts."},
      {kMailBodyTooLarge, 6,
       "Der Text der Mail \"$3$\" an $2$ (Profil $1$) ist mit $4$ KB zu gro\xDF; die Mail geht ohne Anlagen.",
       "The text of the mail \"$3$\" to $2$ (profile $1$) is too large ($4$ KB); the mail goes without attachments.",
       "Shorten the text, or raise the largest mail size of the sending profile."},
      {kMailAttachmentNotWritten, 6, "Die Anlage $1$ einer empfangenen Mail kann nicht gespeichert werden: $2$",
       "The attachment $1$ of a received mail cannot be written: $2$",
       "Check free space and rights in the mail's folder and in the temporary one, then decode the mail again."},
      {kMailFileTooLarge, 6, "Die Maildatei $1$ ist gr\xF6\xDF"
       "er als 2 GB.", "The mail file $1$ is larger than 2 GB.",
       "Mails of this size cannot be decoded; ask the sender for another way."},
      {kCharsetUnknown, 2, "Der Zeichensatz $1$ ist unbekannt.", "The charset $1$ is unknown.",
       "Use one of the identifiers that \"yinet charset list\" shows."},
      {kMailNameParameter, 0, "Parameter $1$ von Content-Type: $2$", "Parameter $1$ of Content-Type: $2$", ""},
      {kMailNameParameterDecoded, 0, "Parameter $1$ von Content-Type dekodiert: $2$",
       "Parameter $1$ of Content-Type decoded: $2$", ""},
      {kMailCharsetParameter, 0, "Zeichensatz ($1$): $2$", "Charset ($1$): $2$", ""},
      {kMailFileParameter, 0, "Parameter $1$ von Content-Disposition: $2$", "Parameter $1$ of Content-Disposition: $2$",
       ""},
      {kMailFileParameterDecoded, 0, "Parameter $1$ von Content-Disposition dekodiert: $2$",
       "Parameter $1$ of Content-Disposition decoded: $2$", ""},
      {kMailHeaderTrace, 0, "Mailkopf: $1$", "Mail header: $1$", ""},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
