// The formats of rows: text with "%s" for each field and "%%" for a percent sign.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Zivlog {

// How many fields the format takes. A '%' before any other character stands for itself.
unsigned fieldsOfFormat(std::string_view format);

// The format with its fields filled in. Fields that the row lacks are empty; those that the format doesn't
// take are appended, a blank before each.
std::string fillFormat(std::string_view format, std::span<std::string_view const> fields);

} // namespace Zivlog
