#pragma once

class YObject;

namespace yinet {

inline constexpr int kSoapTraceChannel = 2195;

// Calls one operation of a SOAP 1.1 service over HTTP; blocks like HTTP::POST. `call` is described in soap_envelope.h;
// the answer's XML, a fault's too, goes to `answer` as YXml reads it, charset of the content type included. True when
// the server answered with status 200 and what it said could be read; an empty answer can. Otherwise one of 21951,
// 21952 and 21954 is logged, or a message of HTTP.
bool execute_soap_call(const YObject& call, YObject& answer);

}  // namespace yinet
