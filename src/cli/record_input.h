#pragma once

// Records that the user gives as JSON.

#include <optional>
#include <string>
#include <string_view>

class YObject;

namespace yinet::cli {

// What is wrong with the input, if anything; the record is unchanged then.
using Problem = std::optional<std::string>;

// One value, stored under `key`, or with an empty key an object whose entries are added to the record. Texts that
// Windows-1252 cannot hold go in as UTF-8, with a remark.
Problem take_json(std::string_view json, YObject& record, const std::string& key);

// An object from a file of the system, from standard input for "-".
Problem take_json_file(const std::string& name, YObject& record);

}  // namespace yinet::cli
