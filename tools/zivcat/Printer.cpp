#include "Printer.h"

#include "Kem/Printable.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

namespace Zivcat {

namespace {

using Json = nlohmann::ordered_json;

constexpr int64_t nsOfSecond = 1'000'000'000;

// RFC 3339 in UTC with nanoseconds, for scripts.
std::string jsonTime(int64_t wallNs) {
   std::string const text = timeText(wallNs, true); // ends in microseconds and 'Z'
   char ns[8];
   int64_t const rest = ((wallNs % 1000) + 1000) % 1000;
   std::snprintf(ns, sizeof(ns), "%03dZ", static_cast<int>(rest));
   return text.substr(0, 10) + "T" + text.substr(11, text.size() - 12) + ns;
}

void printLine(std::ostream& out, Json const& json) {
   out << Kem::printableJson(json.dump(-1, ' ', false, Json::error_handler_t::replace)) << '\n';
}

Json recordJson(std::string const& source, Zivlog::Reader const& reader, Zivlog::Record const& record) {
   Json json;
   if (!source.empty())
      json["source"] = source;
   json["time"] = jsonTime(record.wallNs);
   json["monotonicNs"] = record.monotonicNs;
   json["sequence"] = record.sequence;
   json["level"] = record.level;
   json["facility"] = record.facility;
   json["text"] = reader.textOf(record);
   if (record.isRow) {
      json["fields"] = record.fields;
   } else {
      json["file"] = record.file;
      json["line"] = record.line;
      json["function"] = record.function;
   }
   if (record.isTruncated)
      json["truncated"] = true;
   return json;
}

char const* stateOf(Zivlog::Reader::Header const& header, bool isBeingWritten) {
   return isBeingWritten ? "being written" : header.closedWallNs != 0 ? "closed" : "ended without closing";
}

} // namespace

std::string timeText(int64_t wallNs, bool isUtc) {
   int64_t const rest = ((wallNs % nsOfSecond) + nsOfSecond) % nsOfSecond;
   time_t const seconds = (wallNs - rest) / nsOfSecond;
   tm parts{};
   if (isUtc)
      ::gmtime_r(&seconds, &parts);
   else
      ::localtime_r(&seconds, &parts);
   char date[64];
   std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &parts);
   char text[96];
   std::snprintf(text, sizeof(text), "%s.%06d%s", date, static_cast<int>(rest / 1000), isUtc ? "Z" : "");
   return text;
}

std::string escaped(std::string_view text) {
   return Kem::printable(text, Kem::Backslashes::doubled);
}

void Printer::record(std::string const& source, Zivlog::Reader const& reader, Zivlog::Record const& record) {
   if (form_ == Form::json) {
      printLine(out_, recordJson(source, reader, record));
      return;
   }
   if (!source.empty())
      out_ << escaped(source) << ": ";
   out_ << timeText(record.wallNs, isUtc_) << ' ' << record.level << ' ';
   if (!record.facility.empty())
      out_ << escaped(record.facility) << ": ";
   out_ << escaped(reader.textOf(record));
   if (record.isTruncated)
      out_ << " (truncated)";
   if (!record.file.empty()) {
      out_ << "  [" << escaped(record.file) << ':' << record.line;
      if (!record.function.empty())
         out_ << ' ' << escaped(record.function);
      out_ << ']';
   }
   out_ << '\n';
}

void Printer::info(std::string const& path, Zivlog::Reader const& reader, bool isBeingWritten) {
   auto const& header = reader.header();
   if (form_ == Form::json) {
      Json json;
      json["path"] = path;
      json["program"] = header.program;
      json["pid"] = header.pid;
      json["state"] = stateOf(header, isBeingWritten);
      json["started"] = jsonTime(header.startWallNs);
      if (header.closedWallNs != 0)
         json["closed"] = jsonTime(header.closedWallNs);
      if (reader.missingBytes() != 0)
         json["missingBytes"] = reader.missingBytes();
      json["formats"] = Json::object();
      for (auto const& [id, format] : reader.formats())
         json["formats"][std::to_string(id)] = {{"name", format.name}, {"format", format.format}};
      json["levels"] = Json::array();
      for (unsigned level = 0; level < Zivlog::levelCount; ++level) {
         auto const& ring = reader.ring(level);
         Json entry = {{"level", level},
                       {"bytes", ring.bytes},
                       {"held", ring.held},
                       {"overwritten", ring.written - ring.held}};
         if (ring.held != 0)
            entry["oldest"] = jsonTime(reader.at(ring.oldest).wallNs);
         json["levels"].push_back(std::move(entry));
      }
      printLine(out_, json);
      return;
   }
   out_ << escaped(path) << ": " << escaped(header.program) << ", pid " << header.pid << ", "
        << stateOf(header, isBeingWritten) << '\n';
   out_ << "started " << timeText(header.startWallNs, isUtc_);
   if (header.closedWallNs != 0)
      out_ << ", closed " << timeText(header.closedWallNs, isUtc_);
   out_ << '\n';
   if (reader.missingBytes() != 0)
      out_ << "cut short: " << reader.missingBytes() << " bytes are missing at the end\n";
   out_ << "level  size KiB      held  overwritten  reaches back to\n";
   for (unsigned level = 0; level < Zivlog::levelCount; ++level) {
      auto const& ring = reader.ring(level);
      char line[160];
      std::snprintf(line, sizeof(line), "%5u  %8llu  %8llu  %11llu  %s\n", level,
                    static_cast<unsigned long long>(ring.bytes / 1024),
                    static_cast<unsigned long long>(ring.held),
                    static_cast<unsigned long long>(ring.written - ring.held),
                    ring.held == 0 ? "-" : timeText(reader.at(ring.oldest).wallNs, isUtc_).c_str());
      out_ << line;
   }
}

} // namespace Zivcat
