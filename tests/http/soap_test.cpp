// SOAP calls: the exact request, and what becomes of each kind of answer.

#include "yinet/http/soap_envelope.h"

#include "http/http_fixture.h"
#include "yinet/host/yjson.h"
#include "yinet/script/functions.h"

namespace yinet::test {
namespace {

using testing::HasSubstr;

YObject record(std::string_view json) {
  YObject result;
  const auto error = YJSON::Parse(json, result);
  EXPECT_FALSE(error) << json;
  return result;
}

// The envelope without declaration and root tag, which are the same for all; the reason when there is none.
std::string envelope(std::string_view call) {
  const std::string start =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
      "xmlns:nskv=\"u&amp;&quot;&lt;\">";
  const std::string end = "</SOAP-ENV:Envelope>";
  YObject described = record(call);
  described.StoreText("NAMESPACE", "u&\"<");
  std::string xml;
  if (const auto problem = write_soap_envelope(described, xml)) return "no: " + *problem;
  EXPECT_TRUE(xml.starts_with(start) && xml.ends_with(end)) << xml;
  return xml.substr(start.size(), xml.size() - start.size() - end.size());
}

TEST(SoapEnvelope, HasThePrefixOnEveryName) {
  const std::pair<std::string_view, std::string_view> kCases[] = {
      {R"({"BODY":{"Op":{"a":"<x>\u00e4","n":7,"o":{"lost":"1"},"e":""},"second":{}}})",
       "<SOAP-ENV:Body><nskv:Op><nskv:a>&lt;x&gt;\xC3\xA4</nskv:a><nskv:n>7</nskv:n><nskv:o/><nskv:e/></nskv:Op>"
       "</SOAP-ENV:Body>"},
      {R"({"BODY":{"Op":{}},"HEADER":{"A":{"B":{"c":true},"empty":{}},"L":[{"d":"1"},{"d":"2"}]}})",
       "<SOAP-ENV:Header><nskv:A><nskv:B><nskv:c>1</nskv:c></nskv:B></nskv:A><nskv:L><nskv:d>1</nskv:d></nskv:L>"
       "<nskv:L><nskv:d>2</nskv:d></nskv:L></SOAP-ENV:Header><SOAP-ENV:Body><nskv:Op/></SOAP-ENV:Body>"},
      {R"({"HEADER":{}})", "no: \"BODY\" is missing"},
      {R"({"BODY":{}})", "no: \"BODY\" names no operation"},
      {R"({"BODY":{"a b":{}}})", "no: \"nskv:a b\" is no XML name, at /SOAP-ENV:Envelope/SOAP-ENV:Body/nskv:a b"},
      {R"({"BODY":{"Op":{}},"HEADER":{"x:y":"1"}})", "no: \"x:y\" is no XML name"},
  };
  for (const auto& [call, xml] : kCases) EXPECT_EQ(envelope(call), xml) << call;
  set_setting("XML", "TiefenLimit", "4");
  EXPECT_THAT(envelope(R"({"BODY":{"Op":{}},"HEADER":{"a":{"b":{"c":{"d":"1"}}}}})"), HasSubstr("TiefenLimit"));
  set_setting("XML", "TiefenLimit", std::nullopt);
}

class SoapTest : public HttpTest {
 protected:
  // Calls with an endpoint that answers like this; tells result, answer and logged numbers.
  std::string answered(const std::string& status, const std::string& type, const std::string& body,
                       const std::string& call = R"({"BODY":{"Op":{"a":"1"}}})") {
    ScriptedPeer peer(after_request("</SOAP-ENV:Envelope>")
                          .send("HTTP/1.1 " + status + "\r\nContent-Type: " + type +
                                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body));
    YObject described = record(call);
    described.StoreText("ENDPOINT", peer.url("/soap"));
    log_.clear();
    std::string told = executed(described);
    peer.finish();
    received_ = peer.received();
    return told;
  }
  std::string executed(const YObject& call) {
    YObject block;
    auto& parameters = block.Ensure<YObject>("p");
    parameters.Store<YObject>("pParam", call);
    parameters.Ensure<YObject>("pErg").StoreText("old", "x");
    SOAP_EXECUTEFUNCTION(&block);
    std::string told = (parameters.GetBool("_RETV") ? "true " : "false ") + YJSON::Write(*parameters.Find<YObject>("pErg"));
    for (const int number : log_.numbers()) told += " " + std::to_string(number);
    return told;
  }
  std::string received_;
};

TEST_F(SoapTest, AnswersAreTakenOver) {
  const struct { std::string status, type, body, told; } kCases[] = {
      {"200 OK", "TEXT/XML; charset=utf-8", "<s:E><s:B><i>1</i><i>\xE2\x82\xAC</i></s:B></s:E>",
       "true {\"s:E\":{\"s:B\":{\"i\":[{\"#text\":\"1\"},{\"#text\":\"\xE2\x82\xAC\"}]}}}"},
      {"200 OK", "text/xml; charset=\"ISO-8859-1\"", "<a>\xE4</a>", "true {\"a\":\"\xC3\xA4\"}"},
      {"500 Internal Server Error", "text/xml", "<f><faultcode>s:Client</faultcode></f>",
       R"(false {"f":{"faultcode":"s:Client"}})"},
      {"200 OK", "text/xml2", "<a/>", "false {} 21952"},
      {"200 OK", "text/xml", "<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>", "false {} 21954"},
      {"200 OK", "text/xml", "<a>", "false {} 21954"},
  };
  for (const auto& wanted : kCases)
    EXPECT_EQ(answered(wanted.status, wanted.type, wanted.body), wanted.told) << wanted.type << wanted.body;
}

TEST_F(SoapTest, TheActionIsSentQuotedWhenThereIsOne) {
  const std::pair<std::string, std::string> kCases[] = {
      {R"("SOAPACTION":"urn:x#Op",)", "\r\nContent-Type:text/xml\r\nSOAPAction:\"urn:x#Op\"\r\n"},
      {R"("SOAPACTION":"\"quoted\"",)", "\r\nContent-Type:text/xml\r\nSOAPAction:\"quoted\"\r\n"},
      {R"("SOAPACTION":"",)", "\r\nSOAPAction:\"\"\r\n"},
      {"", "\r\nContent-Type:text/xml\r\n\r\n"},
  };
  for (const auto& [action, line] : kCases) {
    answered("200 OK", "text/xml", "", "{" + action + R"("BODY":{"Op":{}}})");
    EXPECT_THAT(received_, HasSubstr(line)) << action;
  }
  EXPECT_EQ(executed(record(R"({"SOAPACTION":"a\nb","BODY":{"Op":{}}})")), "false {} 21905 21952");
  EXPECT_EQ(executed(record(R"({"BODY":{"":{}}})")), "false {} 21905 21952 21951");
}

TEST_F(SoapTest, ParametersMustBeThere) {
  for (const char* missing : {"pParam", "pErg"}) {
    YObject block;
    auto& parameters = block.Ensure<YObject>("p");
    if (std::string_view(missing) != "pParam") parameters.Ensure<YObject>("pParam");
    SOAP_EXECUTEFUNCTION(&block);
    EXPECT_EQ(parameters.GetType("_RETV"), kTypeBool);
    EXPECT_THAT(log_.last(21953).text, HasSubstr(missing));
  }
}

}  // namespace
}  // namespace yinet::test
