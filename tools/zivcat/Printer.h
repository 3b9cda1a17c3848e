// How zivcat prints: records and file summaries, as text for people or as JSON for scripts.
//
// Traced texts come from the network too, so whatever could steer a terminal or break a line is escaped.
#pragma once

#include "Zivlog/Reader.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace Zivcat {

enum class Form {
   text, // a line each
   json, // one JSON object a line
};

// "2026-11-21 02:41:22.123456" in local time, or in UTC with a 'Z' behind it.
std::string timeText(int64_t wallNs, bool isUtc);

// What isn't printable escaped (Kem/Printable.h), backslashes too, so that no two texts look alike.
std::string escaped(std::string_view text);

class Printer {
  public:
   Printer(std::ostream& out, Form form, bool isUtc) : out_(out), form_(form), isUtc_(isUtc) {}

   // `source` names the file before each record; empty where there is only one file.
   void record(std::string const& source, Zivlog::Reader const& reader, Zivlog::Record const& record);
   // Who wrote the file, whether it still does, and how far back each level reaches.
   void info(std::string const& path, Zivlog::Reader const& reader, bool isBeingWritten);

  private:
   std::ostream& out_;
   Form form_;
   bool isUtc_;
};

} // namespace Zivcat
