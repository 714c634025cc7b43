#pragma once

// Content agents: each knows how to write one kind of body part. An agent has no state besides its type code, so one
// agent serves any number of messages and threads at once.

#include <cstdint>

#include "yinet/host/export.h"
#include "yinet/host/ystring.h"

// What a part is, and so which agent writes it.
enum eMIMETypeCode : std::int32_t {
  kMimeTextPlain = 0,
  kMimeTextHtml = 1,
  kMimeTextCalendar = 2,
  kMimeOctetStream = 3,  // any attached file
  kMimeAlternative = 4,  // container with sub-parts; no agent, the message writes it
};

// Only TextCalendar looks at it; the other agents write their fixed encoding.
enum eMIMEEncodingCode : std::int32_t {
  kMimeEncoding7Bit = 0,
  kMimeEncoding8Bit = 1,
  kMimeEncodingQuotedPrintable = 3,
  kMimeEncodingBase64 = 4,
  kMimeEncodingContainer = 5,
};

// Base of all agents. There is no destructor slot: nothing is ever deleted through this type.
class YINET_API YMIMEContentAgent {
 public:
  explicit YMIMEContentAgent(eMIMETypeCode code) : m_TypeCode(code) {}

  // Appends the whole part to `out`: header block, then the encoded content. `content` is the text itself or, for agents
  // that attach files, the path of the file. False when the content could not be read; what stands in `out` then is
  // the header block alone, or nothing when there was no path. Never half a content.
  virtual bool WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile,
                         YString& out) = 0;
  virtual YString GetTypeName() = 0;  // "text/plain"
  // The header block with the empty line that ends it.
  virtual YString MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile) = 0;

  [[nodiscard]] bool HasTypeCode(int code) const { return code == m_TypeCode; }

  eMIMETypeCode m_TypeCode;

 protected:
  YMIMEContentAgent(const YMIMEContentAgent&) = default;
  YMIMEContentAgent& operator=(const YMIMEContentAgent&) = default;
  ~YMIMEContentAgent() = default;
};

// text/plain, written as "8Bit" with folded lines.
class YINET_API TextPlain final : public YMIMEContentAgent {
 public:
  explicit TextPlain(eMIMETypeCode code) : YMIMEContentAgent(code) {}
  bool WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) override;
  YString GetTypeName() override;
  YString MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile) override;
};

// text/html, written as "quoted-printable" with folded lines.
class YINET_API TextHTML final : public YMIMEContentAgent {
 public:
  explicit TextHTML(eMIMETypeCode code) : YMIMEContentAgent(code) {}
  bool WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) override;
  YString GetTypeName() override;
  YString MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile) override;
};

// text/calendar: a file, copied line by line.
class YINET_API TextCalendar final : public YMIMEContentAgent {
 public:
  TextCalendar() : YMIMEContentAgent(kMimeTextCalendar) {}
  bool WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) override;
  YString GetTypeName() override;
  YString MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile) override;
};

// application/octet-stream: any file, in base64 lines of 72 characters.
class YINET_API YAppOctetStream final : public YMIMEContentAgent {
 public:
  explicit YAppOctetStream(eMIMETypeCode code) : YMIMEContentAgent(code) {}
  bool WritePart(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile, YString& out) override;
  YString GetTypeName() override;
  YString MakePartHeader(YString content, YString parameters, eMIMEEncodingCode encoding, bool isFile) override;
  // WritePart for a file that goes by another name in the mail.
  bool WriteFileAs(const YString& name, const YString& path, YString& out);
};
