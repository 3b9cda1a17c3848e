#include "Kem/Log.h"

#include "Kem/Printable.h"

#include <algorithm>
#include <syslog.h>

namespace Kem {

namespace {
LogSink theSink = nullptr;
char const* theFacility = "VORN";
} // namespace

LogHandle::LogHandle(char const* name, int severity, std::initializer_list<char const*> texts,
                     char const* recommendedAction, Seconds interval, double burst)
    : name_(name), severity_(severity), recommendedAction_(recommendedAction), interval_(interval),
      burst_(burst), room_(burst) {
   for (char const* text : texts)
      text_ += text;
}

bool LogHandle::okToLog(unsigned) const {
   if (interval_ <= 0)
      return true;
   Seconds const time = now();
   // A test's clock may be set to before the last message.
   room_ = std::min(burst_, room_ + std::max(time - refilled_, 0.0) * burst_ / interval_);
   refilled_ = time;
   if (room_ < 1)
      return false;
   room_ -= 1;
   return true;
}

void LogHandle::log(unsigned n, char const* const* args, unsigned count) const {
   std::string line = std::string("%") + theFacility + '-' + std::to_string(severity_) + '-' + name_ + ": ";
   unsigned next = 0;
   for (size_t i = 0; i < text_.size(); ++i) {
      if (text_.compare(i, 2, "%s") == 0 && next < count) {
         line += printable(args[next++]); // names from others
         ++i;
      } else {
         line += text_[i];
      }
   }
   if (n > 0)
      line += " (" + std::to_string(n) + " like it left out)";
   if (theSink)
      theSink(severity_, line);
   else
      syslog(severity_, "%s", line.c_str());
}

void logSinkIs(LogSink sink) {
   theSink = sink;
}

void logFacilityIs(char const* facility) {
   theFacility = facility;
}

} // namespace Kem
