#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/log_capture.h"
#include "support/scripted_peer.h"
#include "yinet/host/setting_table.h"
#include "yinet/http/http.h"

namespace yinet::test {

constexpr std::string_view kOk = "HTTP/1.1 200 OK\r\n";

// A client with its outputs, a captured log and settings that make failures quick.
class HttpTest : public testing::Test {
 protected:
  HttpTest() {
    set(settings::kConnectPause, "0");
    set(settings::kHttpIdlePause, "20");
  }
  ~HttpTest() override {
    for (const Setting* setting : changed_) set_setting(setting->section, setting->name, std::nullopt);
  }
  void set(const Setting& setting, std::string value) {
    set_setting(setting.section, setting.name, std::move(value));
    changed_.push_back(&setting);
  }

  bool get(const std::string& url) { return http_.Get(YString(url), body_, content_type_, status_); }
  bool post(const std::string& url, std::string_view content, std::string_view type) {
    return http_.POST(YString(url), YBuffer(content), YString(type), body_, content_type_, status_);
  }
  [[nodiscard]] std::string_view body() const { return body_.view(); }

  // A peer that takes one request and answers with `steps`.
  static Script after_request(std::string_view end = "\r\n\r\n") { return Script().read_until(std::string(end)); }

  HTTP http_;
  YBuffer body_{"untouched"};
  YString content_type_;
  YString status_;
  LogCapture log_;

 private:
  std::vector<const Setting*> changed_;
};

}  // namespace yinet::test
