#pragma once

#include "yinet/host/export.h"
#include "yinet/host/ybuffer.h"
#include "yinet/host/yobject.h"
#include "yinet/host/ystring.h"

// Takes HTTP messages apart and builds header blocks. Stateless, safe from several threads; costs grow linearly with
// the input. A null output is not wanted; the others are cleared first, so that a failure leaves what was read before
// it. Nothing is logged and nothing thrown: false says that the input is not what it should be, or that memory ran out.
class YINET_API HttpHelper_class {
 public:
  // Cuts at the first empty line, whichever of LF LF and CR LF CR LF comes first; `header` keeps the line end of its
  // last line. A message that begins with a line end has an empty header. `body` may be the message itself, which then
  // loses its header in place, and stays as it is on failure. False when there is no empty line.
  bool ExtractMessageParts(const YBuffer& message, YString* header, YBuffer* body) const noexcept;

  // "GET /a%20b?x=1 HTTP/1.1": everything before the first " HTTP/" in any letter case. Percent escapes become bytes,
  // in the query "+" a blank too; an escape that is none stays. Of equal names in the query the last one counts.
  bool ParseRequestStartLine(const YString& startLine, YString* method, YString* path, YObject* query) const noexcept;

  // "HTTP/1.1 200 OK". `status` is -1 when there is none; true when it is a number other than 0.
  bool ParseResponseStartLine(const YString& startLine, int* status) const noexcept;

  // The first line is the start line, unless it holds a colon and does not begin with "GET ". Each other line becomes a
  // text under its name, a line without colon a key without a value. A name that comes again adds its value as an item
  // (0x01). Folded lines count as lines of their own. False at a line without a name and for an empty first line.
  bool ParseHeader(YString header, YString* startLine, YObject* fields) const noexcept;

  // "text/html; charset=utf-8": what stands before the first ";" and the parameters behind it, without the quotes
  // around a value. False, and no further, where a value without quotes holds a "=". A ";" splits inside quotes too.
  bool ParseHeaderValue(const YString& value, YString* main, YObject* parameters) const noexcept;

  // "name:value" and CR LF for every member, the name alone for a key without a value; no empty line behind them. Empty
  // when a name or a value holds CR, LF or NUL, which would begin a line of its own.
  [[nodiscard]] YString CreateHeader(const YObject& fields) const noexcept;

  // Reads a body into `fields` by the value of its "Content-Type". False for a body that is malformed, goes beyond a
  // limit, or is of another kind than these:
  //
  //   multipart/form-data (RFC 7578)     one entry per field, a text; for a file a record with "FILENAME" (as the sender
  //                                      gave it, folders included), "CONTENTTYPE" and the buffer "CONTENT"
  //   application/x-www-form-urlencoded  one text per field
  //   application/json, .../...+json     the members of the object, as YJSON reads them; any other value as "BODY"
  //   text/plain                         the text as "BODY"
  //   text/xml, application/xml,         the document as YXml reads it, its root element as the only entry; a SOAP
  //   .../...+xml                        envelope likewise, with its prefixes
  //
  // Form fields of one name become one item list (0x01); if one of them is a file, an array of records, in which a text
  // stands as "CONTENT". Texts become Windows-1252: from the charset that the type names, else from UTF-8 where they
  // are UTF-8 that Windows-1252 can hold, else they stay as their bytes. The setting "HTTP"/"FormularFelder" limits the
  // number of fields, those under "XML" limit documents.
  bool ParseBody(const YString& contentType, const YBuffer& body, YObject* fields) const noexcept;
};
YINET_API extern HttpHelper_class HttpHelper;
