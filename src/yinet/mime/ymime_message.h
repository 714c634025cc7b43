#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "yinet/host/export.h"
#include "yinet/host/ydatetime.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"
#include "yinet/mime/content_agents.h"

namespace yinet {
class AttachmentFile;  // a temporary file of a composed mail; removed with its last owner
struct AttachmentName;
class MailPartLister;
struct MailDecodeState;  // what one decode keeps besides the described fields

inline constexpr int kUsualBodySize = 10240;  // characters of a text that decoding keeps before it cuts

// Flags of Decode and, all of them, values of "pOptionen" of MIME_DEKODIERE.
inline constexpr unsigned long kDecodeWriteFiles = 1;   // attachments and text become files; no business of Decode
inline constexpr unsigned long kDecodeKeepHeader = 2;   // the header fields are copied to "Header"
inline constexpr unsigned long kDecodeShort = 4;        // no text of the root part, sender's name or reply address
inline constexpr unsigned long kDecodeInformation = 8;  // parts are described in "PARTINFORMATION", not decoded
}  // namespace yinet

// One mail: composed from a mail record (CreateMessage) or decoded into one (Decode).
//
// A message serves one composition or one decoding; a second composition with the same object appends its parts to those
// of the first. A copy has fields of its own but shares parts and nested messages with its source; what is shared, and
// the temporary files behind it, goes with the last object that shares it, whichever that is.
//
// One thread at a time may use an object (or copies that share parts); different objects may be used on different
// threads. Nothing is thrown; failures are messages 21070 to 21079, and 21001.
class YINET_API YMIMEMessage {
  friend class yinet::MailPartLister;

 public:
  using eMIMETypeCode = ::eMIMETypeCode;
  using eMIMEEncodingCode = ::eMIMEEncodingCode;

  // One part to compose.
  class YINET_API CMIMEPart {
   public:
    CMIMEPart(const YString& content_text, eMIMETypeCode type_code, const YString& parameter_text,
              eMIMEEncodingCode encoding_code, bool is_file);  // `content_text` loses the blanks at both ends

    // Adds a sub-part: texts (types 0 and 1) at the front, all others at the end.
    void m_AddMIMEPart(YString& subContent, eMIMETypeCode subType, YString subParameters, eMIMEEncodingCode subEncoding,
                       bool subIsFile);

    eMIMEEncodingCode encoding;
    eMIMETypeCode type;
    YString parameters;  // appended to the content type
    bool isFile;         // `content` is the path of a file
    YString content;
    std::vector<std::shared_ptr<CMIMEPart>> parts;  // sub-parts of a container (type 4)

    std::shared_ptr<const yinet::AttachmentFile> file;  // set when the content is a temporary file
  };

  // The agents in order of registration. Copies share the agents. Safe from several threads.
  class YINET_API CMIMETypeManager {
   public:
    CMIMETypeManager() = default;
    CMIMETypeManager(const CMIMETypeManager& other);
    CMIMETypeManager& operator=(const CMIMETypeManager& other);
    ~CMIMETypeManager() = default;

    // Appends an agent made with new, without a check for duplicates, and takes it over; null is passed over. It is last,
    // and so the handler of unknown codes, until the next message is built.
    template <typename Agent>
    void RegisterMIMEType(Agent* agent) {
      if (agent) append(std::shared_ptr<YMIMEContentAgent>(agent));
    }
    // The same for an agent whose own type is not known here: its memory is freed in the end, its destructor not run.
    void RegisterMIMEType(YMIMEContentAgent* agent);

    // The first agent with this code, otherwise the one registered last; null only when there is none. Valid as long as
    // the registry.
    YMIMEContentAgent* GetHandler(int code) const;

    // Internal: what building a message does. The four standard agents exist once; they are entered at the end of the
    // list the first time, and every time the last of them becomes the agent registered last.
    void RegisterStandardAgents();
    [[nodiscard]] int Count() const;

   private:
    void append(std::shared_ptr<YMIMEContentAgent> agent);

    mutable std::mutex guard_;
    std::vector<std::shared_ptr<YMIMEContentAgent>> agents_;  // in order of registration
    bool has_standard_agents_ = false;
    std::atomic<YMIMEContentAgent*> last_{nullptr};  // registered last
  };

  static YString m_weekdays;  // item list with delimiter "#", Monday first
  static YString m_months;    // the same, January first
  static CMIMETypeManager m_MIMETypeManager;

  // Everything empty, body limit 10240; registers no agents and sets no boundaries. For embedding, not for work.
  YMIMEMessage();
  // `envelopeHeaders`: item list of header names that carry the envelope recipient; empty: the three usual ones.
  // Sizes in bytes; `maxMailSize` 0 is no limit.
  YMIMEMessage(const YString& envelopeHeaders, int maxMailSize, int maxBodySize, int decodeOptions);
  YMIMEMessage(const YMIMEMessage& other);
  YMIMEMessage& operator=(const YMIMEMessage& other);
  virtual ~YMIMEMessage();

  // --- Composing --------------------------------------------------------------------------------------------------------
  // Results in GetHeader and GetBody; a mail that is too large is reported in the record as "_Error_". Null: nothing.
  void CreateMessage(YObject* mail);
  [[nodiscard]] YString GetFrom() const;
  [[nodiscard]] YString GetHeader() const;
  [[nodiscard]] YString GetBody() const;
  // Kind 0 is To, 1 is Cc, any other Bcc.
  [[nodiscard]] int GetNumRecipients(int kind) const;
  // False, and both texts untouched, when there is no such recipient.
  bool GetRecipient(YString& address, YString& name, int index, int kind) const;

  // --- Decoding ---------------------------------------------------------------------------------------------------------
  // `mail` is the name of a file or, with flag 8, its text. `flags` are kDecode... above. False when
  // there is no such file, it is empty, larger than 2 GB or cannot be read, or without a record; the record is untouched
  // then. False and message 21001, too, when memory runs out on the way.
  bool Decode(const YString& mail, YObject* record, unsigned long flags);

 protected:
  // Steps that a derived class may replace; the order of these declarations is the order of the slots.
  virtual void m_DecodeHeader(YObject* record, YString& header);
  virtual void append_mime_parts();
  virtual void prepare_header();
  virtual void prepare_body(bool isHTML);

  void m_FormatMessage(bool isHTML);  // header and body from the fields; CreateMessage adds the dot-stuffing
  void insert_boundary(YString& text);
  void insert_Alternativeboundary(YString& text);  // (sic)
  void insert_message_end(YString& text);
  void m_AddMultipleRecipients(YString& list, int kind);
  void m_AddRecipient(YString& address, YString& name, int kind);
  YString m_CheckAttachments(YObject* mail);  // item list of the paths to attach
  YString m_EncodeHeaderLine(const YString& text);
  bool m_IsDateInDST(YDate& date);
  YString m_MakeAttachFileName(const YString& name);
  void m_ConvertHTM2TXT(YString& text);

  bool m_GetMail(YObject* result, bool nested, unsigned long flags);
  void m_DecodePart(YObject* part, int start, const YString& parentBoundary, unsigned long flags,
                    YObject* partInformation);
  void m_DecodeItem(YObject* part, int start, int end, bool topLevel);
  void m_DecodeItemHeader(YObject* part, int start, int end, bool topLevel, YObject* partInformation);
  void m_DecodeValue(YString& value);
  int m_GetItemCode(const YString& word);
  void m_GetAttachments(YObjectArray* parts, YObject* result, bool alternative, const bool& nested);
  // Stores a text as a new attachment of the result, under a free name with this extension ("htm"), and gives the name.
  YString m_CreateAttachment(YObject* result, const YString& text, const YString& extension);

  YString m_Recipients;  // envelope recipients of a decoded mail
  YString m_From;        // "<address>" when composing
  YString m_FromName;
  YString m_Subject;
  YString m_Mailer;
  YString m_MailID;
  YString m_Header;
  YString m_Body;       // the text before, the whole MIME body after composition
  YString m_PlainBody;  // plain alternative of an HTML body
  YString m_MailText;   // the mail being decoded
  YString m_MailDir;    // its folder; "Temp:" when it was given as text
  YObject m_Mail;       // record of its root part
  YDateAndTime m_Date;
  std::vector<std::shared_ptr<YMIMEMessage>> m_EmbeddedMessages;
  YString m_Boundary;
  YString m_AlternativeBoundary;
  YString m_ContentType;
  YString m_EnvelopeHeaders;         // item list
  bool m_IsHTML = false;             // decoding: the envelope recipients replace "To"
  std::int32_t m_MaxLineLength = 0;  // of encoded header lines; 0 counts as 76
  YObjectArray m_To;                 // recipients: "EmailAddress" and "FriendlyName"
  YObjectArray m_Cc;
  YObjectArray m_Bcc;  // never written into a header
  std::int32_t m_DecodeOptions = 0;
  std::int32_t m_MaxMailSize = 0;
  std::int32_t m_MaxBodySize = 0;
  std::vector<std::shared_ptr<CMIMEPart>> m_Parts;  // in output order

 private:
  // As CMIMEPart::m_AddMIMEPart, for the top-level list; gives the new part.
  CMIMEPart* m_AddMIMEPart(YString& content, eMIMETypeCode type, YString parameters, eMIMEEncodingCode encoding,
                           bool isFile);
  void m_AddAttachments(const YString& paths, YString& plainText, bool& isHTML);

  // Steps of m_DecodePart. Positions are offsets into m_MailText, -1 as an end stands for the end of the text.
  void m_UnifyLineEnds(std::size_t bodyStart, const YString& boundary);
  bool m_DecodeMultipart(YObject* part, int bodyStart, unsigned long flags, YObject* partInformation);
  void m_DecodeLeaf(YObject* part, int start, int end, bool topLevel, bool inMultipart, bool information,
                    YObject* partInformation);
  void m_DecodeEmbedded(YObject* part, int start, int end);
  [[nodiscard]] bool m_IsDecoding() const;
  void m_TakeEnvelope();  // subject, sender and recipients from the root's fields
  [[nodiscard]] std::string_view m_Content(int start, int end) const;
  bool m_DecodeInlineText(YObject* part, std::string_view content, bool topLevel);
  void m_DecodeToFile(YObject* part, std::string_view content, const YString& name);
  YString m_WriteNewFile(const yinet::AttachmentName& name, YBuffer bytes);
  void m_StoreEnvelope(YObject* result, unsigned long flags);
  void m_StoreText(YObject* result);
  void m_StoreNestedText(YObject* result);
  void m_StorePartText(const YString& text, const YString& subtype, YObject* result);
  bool m_TakeFile(const YString& path, YObject* result);

  // Temporary files of the attachments that m_CheckAttachments listed and that have no part yet, in the list's order.
  std::vector<std::shared_ptr<const yinet::AttachmentFile>> attachment_files_;
  std::shared_ptr<yinet::MailDecodeState> decode_state_;
};
