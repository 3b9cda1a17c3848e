#include "Kem/Trace.h"
#include "Kem/Printable.h"
#include "Kem/TraceFacilities.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace Kem {

uint8_t coverageStream_ = 0;

namespace {

void (*theSink)(TraceLine const&) = nullptr;
bool isToStandardError = true;

constexpr uint8_t bySetting = 1;
constexpr uint8_t forSink = 2;

// Both are functions, since facilities of other files are made before this file's statics.
std::vector<TraceFacility*>& facilities() {
   static auto* const all = new std::vector<TraceFacility*>;
   return *all;
}

// Glob without recursion: on a mismatch the last star takes one more character.
bool matches(std::string_view pattern, std::string_view name) {
   size_t p = 0, n = 0, star = std::string_view::npos, resume = 0;
   while (n < name.size()) {
      if (p < pattern.size() && pattern[p] == '*') {
         star = p++;
         resume = n;
      } else if (p < pattern.size() && pattern[p] == name[n]) {
         ++p;
         ++n;
      } else if (star != std::string_view::npos) {
         p = star + 1;
         n = ++resume;
      } else {
         return false;
      }
   }
   while (p < pattern.size() && pattern[p] == '*')
      ++p;
   return p == pattern.size();
}

struct Entry {
   std::string_view pattern;
   int first, last; // levels; first behind last enables none
};

// "PATTERN/LEVELS"; nothing for what can't be read.
std::optional<Entry> parseEntry(std::string_view text) {
   size_t const slash = text.rfind('/');
   if (slash == std::string_view::npos || slash == 0)
      return {};
   Entry entry{text.substr(0, slash), 1, 0};
   std::string_view const levels = text.substr(slash + 1);
   auto const level = [](char c) { return c >= '0' && c <= '9' ? c - '0' : -1; };
   if (levels == "-")
      return entry;
   if (levels.size() == 1 && level(levels[0]) >= 0)
      entry.first = 0, entry.last = level(levels[0]);
   else if (levels.size() == 3 && levels[1] == '-' && level(levels[0]) >= 0 && level(levels[2]) >= 0)
      entry.first = level(levels[0]), entry.last = level(levels[2]);
   if (entry.first > entry.last)
      return {};
   return entry;
}

template <class Visit>
void forEachEntry(std::string_view text, Visit&& visit) {
   while (!text.empty()) {
      size_t const comma = text.find(',');
      std::string_view const entry = text.substr(0, comma);
      if (!entry.empty())
         visit(entry);
      text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
   }
}

void reportUnreadable(std::string_view text) {
   forEachEntry(text, [](std::string_view item) {
      if (!parseEntry(item))
         std::fprintf(stderr, "trace setting \"%.*s\": expected PATTERN/LEVELS, such as Vorn*/0-5\n",
                      static_cast<int>(item.size()), item.data());
   });
}

std::string& setting() {
   static auto* const text = new std::string([] {
      char const* environment = std::getenv("KEM_TRACE");
      std::string const initial = environment ? environment : "";
      reportUnreadable(initial);
      return initial;
   }());
   return *text;
}

std::string& sinkSetting() {
   static auto* const text = new std::string;
   return *text;
}

} // namespace

TraceFacility::TraceFacility(char const* name) : name_(name) {
   facilities().push_back(this);
   apply();
}

TraceFacility::~TraceFacility() {
   std::erase(facilities(), this);
}

void TraceFacility::apply() {
   auto const add = [this](std::string_view text, uint8_t bit) {
      forEachEntry(text, [&](std::string_view item) {
         auto const entry = parseEntry(item);
         if (!entry || !matches(entry->pattern, name_))
            return;
         for (int level = 0; level < traceLevelCount; ++level) {
            bool const isEnabled = level >= entry->first && level <= entry->last;
            levels_[level] = static_cast<uint8_t>(isEnabled ? levels_[level] | bit : levels_[level] & ~bit);
         }
      });
   };
   std::memset(levels_, 0, sizeof levels_);
   levels_[0] = bySetting;
   add(setting(), bySetting);
   if (theSink)
      add(sinkSetting(), forSink);
}

void applyToAll() {
   for (auto* facility : facilities())
      facility->apply();
}

std::vector<std::string_view> traceFacilityNames() {
   std::vector<std::string_view> names;
   for (auto const* facility : facilities())
      names.emplace_back(facility->name());
   return names;
}

void traceSettingIs(std::string_view text) {
   reportUnreadable(text);
   setting() = text;
   applyToAll();
}

void traceSinkIs(void (*sink)(TraceLine const&), std::string_view text) {
   reportUnreadable(text);
   theSink = sink;
   sinkSetting() = text;
   applyToAll();
}

void traceToStandardErrorIs(bool on) {
   isToStandardError = on;
}

void traceHelper(TraceFacility const& facility, char const* name, std::ostringstream& stream, int level,
                 bool flag, char const* file, int line, char const* function) {
   std::string const text = std::move(stream).str();
   if (!flag)
      return;
   if (isToStandardError && (facility.levels_[level] & bySetting)) {
      timespec time{};
      clock_gettime(CLOCK_REALTIME, &time);
      tm parts{};
      localtime_r(&time.tv_sec, &parts);
      char stamp[32];
      strftime(stamp, sizeof stamp, "%F %T", &parts);
      char const* const slash = std::strrchr(file, '/');
      std::fprintf(stderr, "%s.%06ld %d %s %d %s:%d %s: %s\n", stamp, time.tv_nsec / 1000, getpid(), name,
                   level, slash ? slash + 1 : file, line, function, printable(text).c_str());
   }
   if (theSink)
      theSink({name, level, file, line, function, text});
}

} // namespace Kem
